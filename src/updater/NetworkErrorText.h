#pragma once

#include <QString>

class QNetworkReply;

// The French description of a finished reply's failure: its HTTP status when the server answered with
// an error, otherwise the transport failure ("Impossible de se connecter au serveur.", …).
QString networkErrorText(const QNetworkReply& reply);

// The text of a transfer that ended before the length its server announced.
QString connectionLostText();
