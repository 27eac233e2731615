#pragma once

#include "runtime/PythonRuntimeService.h"
#include "support/TempInstallRoot.h"
#include "support/TestSupport.h"

#include <memory>

namespace TestRuntime {

// Sources whose every address is a closed port on 127.0.0.1: any download or lookup fails at once.
inline ToolSources unreachableSources(const QString& platform = QStringLiteral("linux-x86_64")) {
    ToolSources sources;
    const QString nowhere = QStringLiteral("http://127.0.0.1:%1").arg(TestSupport::freePort());
    sources.addresses = BaseAddresses{nowhere + QStringLiteral("/api"), nowhere + QStringLiteral("/github"),
                                      nowhere + QStringLiteral("/pypi"), nowhere + QStringLiteral("/ffmpeg")};
    sources.platform = platform;
    return sources;
}

// System programs that are all stand-ins (or nothing) under `folder`: "cc", "pkexec", "apt-get".
inline SystemTools standInTools(const QString& folder) {
    SystemTools tools;
    tools.compiler = folder + QStringLiteral("/cc");
    tools.adminLauncher = folder + QStringLiteral("/pkexec");
    tools.packageManager = folder + QStringLiteral("/apt-get");
    tools.fpcalcCandidates = {folder + QStringLiteral("/fpcalc")};
    return tools;
}

// A runtime service over the temporary install root, its settings file and home.
inline std::unique_ptr<PythonRuntimeService> runtimeIn(const TempInstallRoot& temp,
                                                       const ToolSources& sources, const SystemTools& system,
                                                       const QStringList& systemFFmpeg = {},
                                                       const QStringList& systemFFprobe = {}) {
    return std::make_unique<PythonRuntimeService>(PythonRuntimeService::Config{
        {temp.root(), temp.documents(), temp.home(), systemFFmpeg, systemFFprobe},
        temp.settingsFile(),
        QProcessEnvironment::systemEnvironment(),
        temp.home(),
        QStringLiteral("u"),
        1,
        sources,
        system});
}

} // namespace TestRuntime
