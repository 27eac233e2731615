#include "StemOption.h"

#include <QStringList>

std::optional<QList<StemKind>> parseStemOption(const QString& text, QString* error) {
    QList<StemKind> stems;
    for (const QString& name : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const std::optional<StemKind> kind = StemKinds::fromRawValue(name.trimmed());
        if (!kind || !StemKinds::separable().contains(*kind)) {
            *error =
                QStringLiteral("Piste inconnue : %1 (vocals, drums, bass, guitar, piano, other)").arg(name);
            return std::nullopt;
        }
        if (!stems.contains(*kind))
            stems.append(*kind);
    }
    if (stems.isEmpty()) {
        *error = QStringLiteral("--stems attend au moins une piste.");
        return std::nullopt;
    }
    return stems;
}
