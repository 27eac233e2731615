#pragma once

#include "LogEntry.h"

#include <QList>
#include <QObject>

// The application-wide in-memory log: the newest 500 entries, echoed to standard output.
class AppLogger : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<LogEntry> entries READ entries NOTIFY entriesChanged)

public:
    static constexpr int maxEntries = 500;

    static AppLogger& shared();
    explicit AppLogger(QObject* parent = nullptr);

    // Callable from any thread: echoes at once, appends later on the logger's thread.
    void log(const QString& message, LogLevel level = LogLevel::info);
    // Callable from any thread: empties the log later on the logger's thread.
    void clear();
    // Every formatted line, oldest first, joined with "\n".
    QString allText() const;

    const QList<LogEntry>& entries() const { return m_entries; }

Q_SIGNALS:
    void entriesChanged();

private:
    void append(const LogEntry& entry);

    QList<LogEntry> m_entries;
};
