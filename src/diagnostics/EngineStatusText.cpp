#include "diagnostics/EngineStatusText.h"

namespace EngineStatusText {

QString unreachable(const QUrl& address) {
    return QStringLiteral("❌ %1 → NON ACCESSIBLE").arg(address.toString());
}

QString reachable(const QUrl& address, const QString& version) {
    return QStringLiteral("%1 → moteur Halvorn %2").arg(address.toString(), version);
}

} // namespace EngineStatusText
