#pragma once

#include "platform/UserError.h"

#include <QNetworkReply>

// A request that got no usable answer: nothing listening, time-out, dropped connection…
// The message is a French description of the failure.
class TransportError : public UserError {
public:
    TransportError(QNetworkReply::NetworkError code, const QString& detail);

    QNetworkReply::NetworkError code() const { return m_code; }
    bool isCancellation() const { return m_code == QNetworkReply::OperationCanceledError; }

    // Whether the code means the request got no complete answer (network, proxy or protocol failure), as
    // opposed to an HTTP status of 400 or more.
    static bool isTransportFailure(QNetworkReply::NetworkError code) {
        return (code > 0 && code < 200) || (code > 300 && code < 400);
    }

    // "Impossible de se connecter au serveur." and the like; `detail` (Qt's own text) for the rest.
    static QString describe(QNetworkReply::NetworkError code, const QString& detail);

private:
    QNetworkReply::NetworkError m_code;
};
