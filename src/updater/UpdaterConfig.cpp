#include "UpdaterConfig.h"

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
    config.apiBase = qEnvironmentVariableIsEmpty("MARLUNE_GITHUB_API_URL")
                         ? QString::fromLatin1(defaultApiBase)
                         : qEnvironmentVariable("MARLUNE_GITHUB_API_URL");
    while (config.apiBase.endsWith(QLatin1Char('/')))
        config.apiBase.chop(1);
    config.temporaryDir = Places::tempDir();
    config.quitApplication = [] { QCoreApplication::quit(); };
    return config;
}
