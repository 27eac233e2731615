#include "VersionOrder.h"

#include <limits>

namespace VersionOrder {

QList<qint64> components(const QString& version) {
    qsizetype begin = 0, end = version.size();
    const auto trimmed = [](QChar c) {
        return c == QLatin1Char('v') || c == QLatin1Char('V') || c == QLatin1Char(' ');
    };
    while (begin < end && trimmed(version[begin]))
        ++begin;
    while (end > begin && trimmed(version[end - 1]))
        --end;
    QList<qint64> pieces;
    qsizetype i = begin;
    while (i < end) {
        if (!version[i].isDigit() || version[i].unicode() > 127) {
            ++i;
            continue;
        }
        qint64 value = 0;
        bool saturated = false;
        for (; i < end && version[i].unicode() >= '0' && version[i].unicode() <= '9'; ++i) {
            const int digit = version[i].unicode() - '0';
            if (value > (std::numeric_limits<qint64>::max() - digit) / 10)
                saturated = true;
            else
                value = value * 10 + digit;
        }
        pieces.append(saturated ? std::numeric_limits<qint64>::max() : value);
    }
    return pieces;
}

int compare(const QString& a, const QString& b) {
    const QList<qint64> left = components(a), right = components(b);
    const qsizetype count = std::max(left.size(), right.size());
    for (qsizetype i = 0; i < count; ++i) {
        const qint64 l = left.value(i, 0), r = right.value(i, 0);
        if (l != r)
            return l < r ? -1 : 1;
    }
    return 0;
}

} // namespace VersionOrder
