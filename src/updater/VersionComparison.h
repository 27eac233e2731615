#pragma once

#include <QList>
#include <QString>

// Numeric comparison of dotted release versions.
namespace VersionComparison {
// The pieces between dots that read whole as a signed 64-bit decimal ("+3", "-1", "10"), in order;
// every other piece ("", "0-beta", "rc1", one that overflows) is dropped.
QList<qint64> numericPieces(const QString& version);
// Whether `candidate` is greater than `current`, position by position, a missing piece counting as 0.
bool isNewer(const QString& candidate, const QString& current);
} // namespace VersionComparison
