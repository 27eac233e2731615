#include "SharedNetworkAccess.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QPointer>

QNetworkAccessManager& sharedNetworkAccess() {
    static QPointer<QNetworkAccessManager> manager;
    if (!manager)
        manager = new QNetworkAccessManager(QCoreApplication::instance());
    return *manager;
}
