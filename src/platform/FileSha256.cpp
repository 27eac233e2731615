#include "FileSha256.h"

#include <QCryptographicHash>
#include <QFile>

namespace FileSha256 {

std::optional<QByteArray> hex(const QString& path) {
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

} // namespace FileSha256
