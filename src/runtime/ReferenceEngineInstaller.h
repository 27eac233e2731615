#pragma once

#include <QCoro/QCoroTask>
#include <QString>
#include <optional>

class PythonRuntimeService;

// Installs the reference engine shipped with Marlune as a ready engine folder, with no network:
// its sources are copied to backends/{tag}, a virtual environment is made from the system Python
// (seeing its packages), the engine is imported once, then the ready marker and the manifest are written.
namespace ReferenceEngineInstaller {

// The shipped engine's folder: $MARLUNE_REFERENCE_ENGINE, else share/marlune/reference-engine beside the
// executable's prefix, else the source tree Marlune was built from.
std::optional<QString> bundledSourceDir();
// "v" + the version in the folder's pyproject.toml; empty when there is none.
QString tagOf(const QString& sourceDir);
// Returns the installed tag; throws SetupError.
QCoro::Task<QString> install(PythonRuntimeService& runtime, QString sourceDir,
                             QString systemPython = QStringLiteral("/usr/bin/python3"));

} // namespace ReferenceEngineInstaller
