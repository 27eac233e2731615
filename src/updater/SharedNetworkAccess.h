#pragma once

class QNetworkAccessManager;

// The updater's one network client, owned by the application object. Main thread only.
// Requests outlive any service that starts them, so a discarded service is simply not told their end.
QNetworkAccessManager& sharedNetworkAccess();
