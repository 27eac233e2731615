#include "ProgressBar.h"

#include "Console.h"

#include <algorithm>

namespace ProgressBar {

QString line(double percent, const QString& text) {
    const int filled = std::clamp(int(percent / 100.0 * width + 0.5), 0, width);
    const QString bar = QString(filled, QLatin1Char('#')) + QString(width - filled, QChar(0x00B7));
    const QString head = QStringLiteral("\r[%1] %2 % ").arg(bar).arg(int(percent), 3);
    const qsizetype room = lineWidth - (head.size() - 1); // the carriage return takes no column
    const QString shown = text.size() > room ? text.left(room - 1) + QChar(0x2026) : text;
    return QString(head + shown).leftJustified(lineWidth + 1);
}

void show(double percent, const QString& text) {
    Console::errRaw(line(percent, text));
}

void clear() {
    Console::errRaw(QLatin1Char('\r') + QString(lineWidth, QLatin1Char(' ')) + QLatin1Char('\r'));
}

} // namespace ProgressBar
