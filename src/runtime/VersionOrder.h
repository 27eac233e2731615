#pragma once

#include <QList>
#include <QString>

// Order of version texts: "v1.10.2" → 1, 10, 2; a missing piece counts as 0.
namespace VersionOrder {
QList<qint64> components(const QString& version);
// Negative when a < b, zero when equal, positive when a > b.
int compare(const QString& a, const QString& b);
inline bool isGreater(const QString& a, const QString& b) {
    return compare(a, b) > 0;
}
} // namespace VersionOrder
