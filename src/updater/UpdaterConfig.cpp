#include "UpdaterConfig.h"

#include "platform/BaseAddresses.h"
#include "platform/Places.h"

#include <BuildInfo.h>
#include <QCoreApplication>

UpdaterConfig UpdaterConfig::fromBuild() {
    UpdaterConfig config;
    config.repo = qEnvironmentVariableIsSet("MARLUNE_UPDATE_REPO")
                      ? qEnvironmentVariable("MARLUNE_UPDATE_REPO")
                      : QStringLiteral(MARLUNE_UPDATE_REPO);
    config.currentVersion = QStringLiteral(MARLUNE_VERSION);
    if (config.currentVersion.isEmpty())
        config.currentVersion = QStringLiteral("0.0.0");
    config.apiBase = BaseAddresses::fromEnvironment().githubApi;
    config.temporaryDir = Places::tempDir();
    config.quitApplication = [] { QCoreApplication::quit(); };
    return config;
}
