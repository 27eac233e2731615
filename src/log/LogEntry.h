#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QUuid>
#include <optional>

// Severity of a log entry; its raw value is the icon shown before the message.
enum class LogLevel { info, ok, warn, error, debug };

QString logLevelIcon(LogLevel level);
std::optional<LogLevel> logLevelFromIcon(const QString& icon);

// One immutable line of the application log.
struct LogEntry {
    QUuid id;
    QDateTime date;
    LogLevel level = LogLevel::info;
    QString message;

    // "[HH:mm:ss.SSS] {icon} {message}"
    QString formattedLine() const;
};

// "HH:mm:ss.SSS" in local time, through the one shared formatter.
QString formatLogTime(const QDateTime& date);

Q_DECLARE_METATYPE(LogEntry)
