#pragma once

#include <QCoro/QCoroTask>
#include <QString>
#include <optional>

// SHA-256 digests of downloaded tools.
namespace ToolDigest {

// 64 lower-case hexadecimal digits of the whole file, hashed on a worker thread; throws SetupError when
// the file cannot be read.
QCoro::Task<QString> sha256Hex(QString path);

// Throws SetupError("Somme de contrôle invalide pour {fileName}") unless the file's digest is `expected`.
QCoro::Task<> verify(QString path, QString expected, QString fileName);

} // namespace ToolDigest
