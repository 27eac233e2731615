#pragma once

#include <QColor>
#include <QList>
#include <QString>
#include <optional>

// What a stem holds. The order of the cases is the order of every list of all kinds.
enum class StemKind { vocals, drums, bass, guitar, piano, other, original, mix };

namespace StemKinds {
// All 8 kinds, in case order.
QList<StemKind> all();
// vocals, drums, bass, guitar, piano, other: the stems an engine can extract (default selection).
QList<StemKind> separable();
// vocals … original: the studio's list when a job names no stems.
QList<StemKind> studioFallback();

QString rawValue(StemKind kind);    // wire and file-name text, e.g. "vocals"
QString displayName(StemKind kind); // e.g. "Voix"
QString iconName(StemKind kind);    // symbol name, e.g. "mic.fill"
QString colorHex(StemKind kind);    // "#RRGGBB"
QColor color(StemKind kind);        // colorFromHex(colorHex(kind))
// The kind whose raw value is exactly `raw` (case-sensitive); none for any other text.
std::optional<StemKind> fromRawValue(const QString& raw);
} // namespace StemKinds

// "#RRGGBB" (any non-alphanumeric characters ignored) to an opaque sRGB colour; black unless exactly six
// characters remain.
QColor colorFromHex(const QString& text);
