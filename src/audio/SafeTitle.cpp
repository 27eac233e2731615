#include "SafeTitle.h"

namespace {
constexpr qsizetype maxCharacters = 60;

bool isKept(char32_t c) {
    return QChar::isLetter(c) || QChar::isDigit(c) || c == U' ' || c == U'-' || c == U'_';
}
} // namespace

QString safeTitle(const QString& title) {
    // Composed form, so that an accent typed as a combining mark stays on its letter.
    const QList<uint> codePoints = title.normalized(QString::NormalizationForm_C).toUcs4();
    QList<char32_t> kept;
    kept.reserve(codePoints.size());
    for (uint c : codePoints)
        if (isKept(c))
            kept.append(c);

    // Only plain spaces are left as white space, so trimming removes exactly the spaces at both ends.
    QString result = QString::fromUcs4(kept.constData(), kept.size()).trimmed();
    result.replace(QStringLiteral("  "), QStringLiteral(" "));

    const QList<uint> characters = result.toUcs4();
    if (characters.size() <= maxCharacters)
        return result;
    static_assert(sizeof(uint) == sizeof(char32_t));
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(characters.constData()), maxCharacters);
}
