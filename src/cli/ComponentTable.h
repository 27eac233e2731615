#pragma once

#include "runtime/ComponentInfo.h"

#include <QList>
#include <QString>

// The components list as text: one aligned row per component (name, "optionnel" badge, installed,
// latest, state), absent values shown as "—".
namespace ComponentTable {

QString stateText(const ComponentInfo& row);
QString text(const QList<ComponentInfo>& rows);

} // namespace ComponentTable
