#include "VersionComparison.h"

#include <limits>
#include <optional>

namespace VersionComparison {
namespace {

// An optional sign, then ASCII digits only, within the range of qint64.
std::optional<qint64> signedDecimal(QStringView piece) {
    bool negative = false;
    if (!piece.isEmpty() && (piece.front() == QLatin1Char('+') || piece.front() == QLatin1Char('-'))) {
        negative = piece.front() == QLatin1Char('-');
        piece = piece.mid(1);
    }
    if (piece.isEmpty())
        return std::nullopt;
    // Accumulate as a negative number: its range holds the magnitude of qint64's minimum.
    constexpr qint64 lowest = std::numeric_limits<qint64>::min();
    qint64 value = 0;
    for (const QChar character : piece) {
        if (character < QLatin1Char('0') || character > QLatin1Char('9'))
            return std::nullopt;
        const int digit = character.unicode() - '0';
        if (value < (lowest + digit) / 10)
            return std::nullopt;
        value = value * 10 - digit;
    }
    if (negative)
        return value;
    if (value == lowest)
        return std::nullopt;
    return -value;
}

} // namespace

QList<qint64> numericPieces(const QString& version) {
    QList<qint64> pieces;
    for (const QStringView piece : QStringView(version).split(QLatin1Char('.')))
        if (const auto number = signedDecimal(piece))
            pieces.append(*number);
    return pieces;
}

bool isNewer(const QString& candidate, const QString& current) {
    const QList<qint64> left = numericPieces(candidate);
    const QList<qint64> right = numericPieces(current);
    for (qsizetype i = 0; i < qMax(left.size(), right.size()); ++i) {
        const qint64 a = i < left.size() ? left.at(i) : 0;
        const qint64 b = i < right.size() ? right.at(i) : 0;
        if (a != b)
            return a > b;
    }
    return false;
}

} // namespace VersionComparison
