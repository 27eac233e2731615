#include "LogEntry.h"

#include <QLocale>

namespace {
struct LevelIcon {
    LogLevel level;
    const char* icon;
};
constexpr LevelIcon kIcons[] = {
    {LogLevel::info, "ℹ️"}, {LogLevel::ok, "✅"},    {LogLevel::warn, "⚠️"},
    {LogLevel::error, "❌"},     {LogLevel::debug, "🔍"},
};

class TimeFormatter {
public:
    QString format(const QDateTime& date) const {
        return m_locale.toString(date.toLocalTime().time(), QStringLiteral("HH:mm:ss.zzz"));
    }

private:
    QLocale m_locale = QLocale::c();
};
} // namespace

QString logLevelIcon(LogLevel level) {
    for (const auto& entry : kIcons)
        if (entry.level == level)
            return QString::fromUtf8(entry.icon);
    return {};
}

std::optional<LogLevel> logLevelFromIcon(const QString& icon) {
    for (const auto& entry : kIcons)
        if (icon == QString::fromUtf8(entry.icon))
            return entry.level;
    return std::nullopt;
}

QString formatLogTime(const QDateTime& date) {
    static const TimeFormatter formatter;
    return formatter.format(date);
}

QString LogEntry::formattedLine() const {
    return QLatin1Char('[') + formatLogTime(date) + QStringLiteral("] ") + logLevelIcon(level) +
           QLatin1Char(' ') + message;
}
