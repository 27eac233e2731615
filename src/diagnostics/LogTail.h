#pragma once

#include <QString>
#include <QStringList>
#include <optional>

namespace LogTail {
// The last `count` lines of `text` (split at "\n") that hold more than spaces and tabs, unchanged.
QStringList lastNonBlankLines(const QString& text, int count);
// The file's whole text; none when it cannot be read or is not UTF-8.
std::optional<QString> readText(const QString& path);
} // namespace LogTail
