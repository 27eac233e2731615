#include "TransferLength.h"

#include <QNetworkReply>

bool endedBeforeAnnouncedLength(const QNetworkReply& reply, qint64 received) {
    const QVariant announced = reply.header(QNetworkRequest::ContentLengthHeader);
    return announced.isValid() && reply.rawHeader("Content-Encoding").isEmpty() &&
           announced.toLongLong() != received;
}
