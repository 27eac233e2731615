#pragma once

#include <QCoro/QCoroTask>
#include <QString>
#include <optional>

// The common last step of every tool install.
namespace ExecutableInstaller {

// Checks `source` against `expectedSha` when given, copies it to "{destination}.partial", makes that
// 0755, runs it with `probeArgument` when given, then moves it over `destination`. Throws SetupError:
// "Somme de contrôle invalide pour {file}", "{file} ne s'exécute pas sur cette machine", or a copy
// failure. Whatever fails, the partial file is removed and an existing destination stays as it was.
QCoro::Task<> installExecutable(QString source, std::optional<QString> expectedSha, QString destination,
                                std::optional<QString> probeArgument);

} // namespace ExecutableInstaller
