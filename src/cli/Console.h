#pragma once

#include <QString>

// Standard output for results, standard error for French messages; UTF-8, flushed at once.
namespace Console {
void out(const QString& text);    // a line on standard output
void err(const QString& text);    // a line on standard error
void errRaw(const QString& text); // text on standard error, no line break added (progress bars)
} // namespace Console
