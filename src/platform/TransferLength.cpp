#include "TransferLength.h"

#include <QNetworkReply>

TransferLength::TransferLength(QNetworkReply* reply)
    : m_reply(reply) {
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply,
                     [this](qint64, qint64 total) { m_announced = total; });
}

bool TransferLength::differsFromAnnounced(qint64 received) const {
    return m_announced > 0 && m_reply->rawHeader("Content-Encoding").isEmpty() && m_announced != received;
}
