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

    // Whether a finished reply got no complete answer (nothing listening, time-out, dropped connection,
    // broken protocol), as opposed to an answer whose HTTP status is 400 or more.
    static bool failedInTransport(const QNetworkReply* reply);

    // "Impossible de se connecter au serveur." and the like; `detail` (Qt's own text) for the rest.
    static QString describe(QNetworkReply::NetworkError code, const QString& detail);

private:
    QNetworkReply::NetworkError m_code;
};
