#include "ToolDigest.h"

#include "SetupError.h"
#include "platform/FileSha256.h"

#include <QCoro/QCoroFuture>
#include <QtConcurrent>

namespace ToolDigest {

QCoro::Task<QString> sha256Hex(QString path) {
    QFuture<std::optional<QByteArray>> hashing = QtConcurrent::run([path] { return FileSha256::hex(path); });
    const std::optional<QByteArray> digest = co_await hashing;
    if (!digest)
        throw SetupError(QStringLiteral("Lecture impossible : %1").arg(path));
    co_return QString::fromLatin1(*digest);
}

QCoro::Task<> verify(QString path, QString expected, QString fileName) {
    const QString actual = co_await sha256Hex(path);
    if (actual != expected.toLower())
        throw SetupError(QStringLiteral("Somme de contrôle invalide pour %1").arg(fileName));
}

} // namespace ToolDigest
