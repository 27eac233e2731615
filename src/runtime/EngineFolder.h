#pragma once

#include "InstallLayout.h"

#include <QCoro/QCoroTask>
#include <QProcessEnvironment>
#include <QString>

// Steps shared by every way of installing an engine folder.
namespace EngineFolder {

// Runs `python` with "-c" "import app.main" in `folder`; throws the runner's SetupError when the engine
// does not import.
QCoro::Task<> checkImports(QString python, QString folder, QProcessEnvironment environment);

// Creates the ready marker backends/{tag}/.halvorn-ready; false when it cannot be written.
bool markReady(const InstallLayout& layout, const QString& tag);

} // namespace EngineFolder
