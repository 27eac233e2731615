#pragma once

#include <QString>
#include <QUrl>

// How a line names the engine at `address` (the base address in full, scheme included).
namespace EngineStatusText {
// "❌ {address} → NON ACCESSIBLE"
QString unreachable(const QUrl& address);
// "{address} → moteur Halvorn {version}"
QString reachable(const QUrl& address, const QString& version);
} // namespace EngineStatusText
