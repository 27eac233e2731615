#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// SHA-256 of a file's contents, read in large blocks. Blocking: run it off the main thread.
namespace FileSha256 {
// 64 lower-case hexadecimal digits, or nothing when the file cannot be read to its end.
std::optional<QByteArray> hex(const QString& path);
} // namespace FileSha256
