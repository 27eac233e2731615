#pragma once

#include <QtGlobal>

class QNetworkReply;

// Whether a finished reply delivered fewer bytes than its Content-Length announced. A connection closed
// early can finish without an error; bodies with a Content-Encoding are not compared.
bool endedBeforeAnnouncedLength(const QNetworkReply& reply, qint64 received);
