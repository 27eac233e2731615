#include "FileDigest.h"

#include <QCryptographicHash>
#include <QFile>

namespace FileDigest {

std::optional<QByteArray> sha256Hex(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    QByteArray block(1 << 20, Qt::Uninitialized);
    for (;;) {
        const qint64 read = file.read(block.data(), block.size());
        if (read < 0)
            return std::nullopt;
        if (read == 0)
            break;
        hash.addData(QByteArrayView(block.constData(), read));
    }
    return hash.result().toHex();
}

bool matches(const QString& path, const QString& digest) {
    static const QString prefix = QStringLiteral("sha256:");
    if (!digest.startsWith(prefix, Qt::CaseInsensitive))
        return false;
    const QByteArray expected = digest.mid(prefix.size()).trimmed().toLatin1().toLower();
    if (expected.size() != 64)
        return false;
    const auto actual = sha256Hex(path);
    return actual && *actual == expected;
}

} // namespace FileDigest
