#pragma once

#include <QString>
#include <chrono>
#include <functional>
#include <optional>

// Everything UpdaterService takes from outside; tests build their own.
struct UpdaterConfig {
    QString repo;           // "owner/name" of the application's repository, as configured
    QString currentVersion; // the running version
    QString apiBase;        // GitHub REST API base address, no trailing slash
    std::chrono::milliseconds upToDateDelay{3000}; // how long upToDate shows before idle
    std::optional<QString> appImagePath;           // the running AppImage; default: $APPIMAGE
    QString temporaryDir;                          // where downloads are written
    std::function<void()> quitApplication;         // default: QCoreApplication::quit

    // The build-time values (MARLUNE_UPDATE_REPO, MARLUNE_VERSION), with the environment overrides
    // MARLUNE_UPDATE_REPO and MARLUNE_GITHUB_API_URL.
    static UpdaterConfig fromBuild();
};
