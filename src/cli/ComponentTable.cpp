#include "ComponentTable.h"

namespace ComponentTable {

namespace {
const QString none = QStringLiteral("—");
constexpr int gap = 2;
} // namespace

QString stateText(const ComponentInfo& row) {
    using Kind = ComponentInfo::State::Kind;
    switch (row.state.kind) {
    case Kind::unknown:
        return none;
    case Kind::checking:
        return QStringLiteral("Vérification…");
    case Kind::working:
        return QStringLiteral("En cours…");
    case Kind::ok:
        return QStringLiteral("OK");
    case Kind::missing:
        return QStringLiteral("Absent");
    case Kind::outdated:
        return row.id == ComponentID::models ? QStringLiteral("À télécharger")
                                             : QStringLiteral("Mise à jour disponible");
    case Kind::failed:
        return QStringLiteral("Erreur : %1").arg(row.state.message);
    }
    return none;
}

QString text(const QList<ComponentInfo>& rows) {
    QList<QStringList> cells;
    for (const ComponentInfo& row : rows)
        cells.append({Components::displayName(row.id),
                      Components::isOptional(row.id) ? QStringLiteral("optionnel") : QString(),
                      row.installed.value_or(none), row.latest.value_or(none), stateText(row)});
    QList<qsizetype> widths(5, 0);
    for (const QStringList& line : cells)
        for (int column = 0; column < line.size(); ++column)
            widths[column] = std::max(widths[column], line[column].size());
    QStringList lines;
    for (const QStringList& line : cells) {
        QString text;
        for (int column = 0; column < line.size(); ++column)
            text +=
                column + 1 < line.size() ? line[column].leftJustified(widths[column] + gap) : line[column];
        lines.append(text);
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace ComponentTable
