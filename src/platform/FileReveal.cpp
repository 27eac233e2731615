#include "FileReveal.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QFileInfo>
#include <QUrl>

namespace FileReveal {

bool reveal(const QString& path) {
    const QFileInfo info(path);
    const QUrl url = QUrl::fromLocalFile(info.absoluteFilePath());
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
        call << QStringList{url.toString()} << QString();
        const QDBusMessage answer = bus.call(call, QDBus::Block, 3000);
        if (answer.type() == QDBusMessage::ReplyMessage)
            return true;
    }
    const QString folder = info.isDir() ? info.absoluteFilePath() : info.absolutePath();
    return QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}

} // namespace FileReveal
