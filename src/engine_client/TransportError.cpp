#include "engine_client/TransportError.h"

TransportError::TransportError(QNetworkReply::NetworkError code, const QString& detail)
    : UserError(describe(code, detail))
    , m_code(code) {}

bool TransportError::failedInTransport(const QNetworkReply* reply) {
    const QNetworkReply::NetworkError code = reply->error();
    if (code == QNetworkReply::NoError)
        return false;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        return true;
    // Qt reports the statuses 400 and 407 under these two codes.
    if (status.toInt() >= 400 && (code == QNetworkReply::ProtocolInvalidOperationError ||
                                  code == QNetworkReply::ProxyAuthenticationRequiredError))
        return false;
    return (code > 0 && code < 200) || (code > 300 && code < 400);
}

QString TransportError::describe(QNetworkReply::NetworkError code, const QString& detail) {
    switch (code) {
    case QNetworkReply::ConnectionRefusedError:
        return QStringLiteral("Impossible de se connecter au serveur.");
    case QNetworkReply::RemoteHostClosedError:
        return QStringLiteral("La connexion réseau a été perdue.");
    case QNetworkReply::HostNotFoundError:
        return QStringLiteral("Un serveur avec le nom d’hôte indiqué est introuvable.");
    case QNetworkReply::TimeoutError:
        return QStringLiteral("La requête a expiré.");
    case QNetworkReply::OperationCanceledError:
        return QStringLiteral("Annulé");
    case QNetworkReply::ProtocolInvalidOperationError:
    case QNetworkReply::ProtocolFailure:
        return QStringLiteral("Le serveur a renvoyé une réponse incorrecte.");
    case QNetworkReply::ProtocolUnknownError:
        return QStringLiteral("Adresse non prise en charge.");
    default:
        return detail.isEmpty() ? QStringLiteral("Erreur réseau inconnue.") : detail;
    }
}
