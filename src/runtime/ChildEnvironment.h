#pragma once

#include "InstallLayout.h"

#include <QProcessEnvironment>

class SettingsStore;

// Environments of the runtime's child processes.
namespace ChildEnvironment {

// The application's environment with the usual system folders on PATH, HOME, USER and LANG set, and no
// outer Python or Conda setup (VIRTUAL_ENV, PYTHONHOME, PYTHONPATH, CONDA_PREFIX removed).
QProcessEnvironment clean(const QProcessEnvironment& base, const QString& home, const QString& user);
QProcessEnvironment clean(); // from this process's environment, home and user

// The clean environment plus what the engine of `tag` is launched with; settings are read now.
QProcessEnvironment backend(const QProcessEnvironment& clean, const InstallLayout& layout, const QString& tag,
                            const SettingsStore& settings, qint64 parentPid);

} // namespace ChildEnvironment
