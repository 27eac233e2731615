#include "NetworkErrorText.h"

#include <QNetworkReply>

QString networkErrorText(const QNetworkReply& reply) {
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() >= 400)
        return QStringLiteral("Le serveur a répondu HTTP %1.").arg(status.toInt());
    switch (reply.error()) {
    case QNetworkReply::ConnectionRefusedError:
        return QStringLiteral("Impossible de se connecter au serveur.");
    case QNetworkReply::HostNotFoundError:
        return QStringLiteral("Un serveur avec le nom d'hôte indiqué est introuvable.");
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // what a transfer timeout reports
        return QStringLiteral("La requête a expiré.");
    case QNetworkReply::RemoteHostClosedError:
        return connectionLostText();
    case QNetworkReply::SslHandshakeFailedError:
        return QStringLiteral("Une erreur SSL s'est produite : connexion sécurisée au serveur impossible.");
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
        return QStringLiteral("La connexion Internet semble être hors ligne.");
    case QNetworkReply::ProtocolUnknownError:
    case QNetworkReply::ProtocolInvalidOperationError:
        return QStringLiteral("URL non prise en charge");
    case QNetworkReply::TooManyRedirectsError:
    case QNetworkReply::InsecureRedirectError:
        return QStringLiteral("Trop de redirections, ou une redirection non sécurisée.");
    default:
        return QStringLiteral("Erreur réseau : %1").arg(reply.errorString());
    }
}

QString connectionLostText() {
    return QStringLiteral("La connexion réseau a été perdue.");
}
