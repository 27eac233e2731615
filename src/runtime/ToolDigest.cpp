#include "ToolDigest.h"

#include "SetupError.h"

#include <QCoro/QCoroFuture>
#include <QCryptographicHash>
#include <QFile>
#include <QtConcurrent>

namespace ToolDigest {

std::optional<QString> sha256HexOf(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file) || !file.atEnd())
        return std::nullopt;
    return QString::fromLatin1(hash.result().toHex());
}

QCoro::Task<QString> sha256Hex(QString path) {
    QFuture<std::optional<QString>> hashing = QtConcurrent::run([path] { return sha256HexOf(path); });
    const std::optional<QString> digest = co_await hashing;
    if (!digest)
        throw SetupError(QStringLiteral("Lecture impossible : %1").arg(path));
    co_return *digest;
}

QCoro::Task<> verify(QString path, QString expected, QString fileName) {
    const QString actual = co_await sha256Hex(path);
    if (actual != expected.toLower())
        throw SetupError(QStringLiteral("Somme de contrôle invalide pour %1").arg(fileName));
}

} // namespace ToolDigest
