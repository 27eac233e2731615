#include "FileDigest.h"

#include "platform/FileSha256.h"

namespace FileDigest {

bool matches(const QString& path, const QString& digest) {
    static const QString prefix = QStringLiteral("sha256:");
    if (!digest.startsWith(prefix, Qt::CaseInsensitive))
        return false;
    const QByteArray expected = digest.mid(prefix.size()).trimmed().toLatin1().toLower();
    if (expected.size() != 64)
        return false;
    const std::optional<QByteArray> actual = FileSha256::hex(path);
    return actual && *actual == expected;
}

} // namespace FileDigest
