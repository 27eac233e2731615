#pragma once

#include <QObject>

class QNetworkReply;

// Follows the length a reply's last response announces (after redirects), to tell a transfer that
// ended early: a connection closed before the announced length can finish without an error. Bodies with
// a Content-Encoding are not compared.
class TransferLength {
public:
    explicit TransferLength(QNetworkReply* reply);

    // Whether `received` bytes fall short of (or exceed) what the server announced.
    bool differsFromAnnounced(qint64 received) const;

private:
    QNetworkReply* m_reply;
    qint64 m_announced = -1;
};
