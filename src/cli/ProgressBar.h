#pragma once

#include <QString>

// One progress line on standard error, redrawn in place: "\r[####······] 42 % text".
namespace ProgressBar {

constexpr int width = 24;      // characters of the bar
constexpr int lineWidth = 100; // the line is padded to this, so a shorter one hides a longer one

// The line for `percent` (0…100) and `text`, cut with "…" when it would not fit in `lineWidth` columns.
QString line(double percent, const QString& text);
// Draws the line (no line break).
void show(double percent, const QString& text);
// Blanks the line and returns to its start.
void clear();

} // namespace ProgressBar
