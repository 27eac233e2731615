#include "AppLogger.h"

#include <QCoreApplication>
#include <QPointer>
#include <cstdio>

AppLogger& AppLogger::shared() {
    static AppLogger* instance = [] {
        auto* logger = new AppLogger;
        if (QCoreApplication* app = QCoreApplication::instance())
            logger->moveToThread(app->thread());
        return logger;
    }();
    return *instance;
}

AppLogger::AppLogger(QObject* parent)
    : QObject(parent) {}

void AppLogger::log(const QString& message, LogLevel level) {
    const LogEntry entry{QUuid::createUuid(), QDateTime::currentDateTime(), level, message};
    QPointer<AppLogger> self(this);
    QMetaObject::invokeMethod(
        this,
        [self, entry] {
            if (self)
                self->append(entry);
        },
        Qt::QueuedConnection);
    const QByteArray line = entry.formattedLine().toUtf8() + '\n';
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
    std::fflush(stdout);
}

void AppLogger::clear() {
    QPointer<AppLogger> self(this);
    QMetaObject::invokeMethod(
        this,
        [self] {
            if (!self)
                return;
            self->m_entries.clear();
            Q_EMIT self->entriesChanged();
        },
        Qt::QueuedConnection);
}

QString AppLogger::allText() const {
    QStringList lines;
    lines.reserve(m_entries.size());
    for (const LogEntry& entry : m_entries)
        lines.append(entry.formattedLine());
    return lines.join(QLatin1Char('\n'));
}

void AppLogger::append(const LogEntry& entry) {
    m_entries.append(entry);
    if (m_entries.size() > maxEntries)
        m_entries.remove(0, m_entries.size() - maxEntries);
    Q_EMIT entriesChanged();
}
