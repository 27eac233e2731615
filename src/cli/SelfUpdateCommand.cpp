#include "SelfUpdateCommand.h"

#include "Console.h"
#include "updater/UpdaterService.h"

namespace {

const QString kUsage = QStringLiteral("self-update [--check]");

// Download progress on standard error, one rewritten line, a step per whole percent.
class ProgressLine {
public:
    void show(const UpdaterState& state) {
        if (state.kind() != UpdaterState::Kind::downloading) {
            finish();
            return;
        }
        const int percent = int(state.fraction() * 100);
        if (percent == m_percent)
            return;
        m_percent = percent;
        Console::errRaw(QStringLiteral("\rTéléchargement… %1%").arg(percent));
    }
    void finish() {
        if (m_percent >= 0)
            Console::errRaw(QStringLiteral("\n"));
        m_percent = -1;
    }

private:
    int m_percent = -1;
};

int reportFailure(const UpdaterState& state) {
    Console::err(QStringLiteral("Erreur : %1").arg(state.message()));
    return ExitCode::failure;
}

QCoro::Task<int> install(UpdaterService& updater, const GitHubRelease& release) {
    ProgressLine progress;
    QObject::connect(&updater, &UpdaterService::stateChanged, &updater,
                     [&progress](const UpdaterState& state) {
                         progress.show(state);
                         if (state.kind() == UpdaterState::Kind::installing)
                             Console::err(QStringLiteral("Installation en cours…"));
                     });
    co_await updater.installRelease(release);
    progress.finish();
    const UpdaterState state = updater.state();
    if (state.kind() != UpdaterState::Kind::readyToRestart)
        co_return reportFailure(state);
    Console::out(QStringLiteral("Mise à jour installée !"));
    Console::out(QStringLiteral("Redémarrez Marlune pour utiliser la nouvelle version."));
    co_return ExitCode::success;
}

QCoro::Task<int> runSelfUpdate(QStringList arguments) {
    bool checkOnly = false;
    for (const QString& argument : arguments) {
        if (argument != QLatin1String("--check")) {
            Console::err(
                QStringLiteral("Option inconnue : %1\nUtilisation : marlune %2").arg(argument, kUsage));
            co_return ExitCode::usage;
        }
        checkOnly = true;
    }
    UpdaterService updater;
    if (!updater.repo()) {
        Console::err(
            QStringLiteral("Mise à jour automatique non configurée : Marlune a été compilé sans dépôt de "
                           "publications (MARLUNE_UPDATE_REPO)."));
        co_return ExitCode::failure;
    }
    co_await updater.performCheck();
    const UpdaterState state = updater.state();
    if (state.kind() == UpdaterState::Kind::upToDate) {
        Console::out(QStringLiteral("Marlune est à jour"));
        Console::out(
            QStringLiteral("Vous utilisez la version %1, la plus récente.").arg(updater.currentVersion()));
        co_return ExitCode::success;
    }
    if (state.kind() != UpdaterState::Kind::updateAvailable)
        co_return reportFailure(state);
    const GitHubRelease offered = state.release();
    Console::out(QStringLiteral("Version %1 disponible").arg(offered.version()));
    if (!updater.releaseNotes().isEmpty())
        Console::out(updater.releaseNotes());
    if (checkOnly)
        co_return ExitCode::success;
    co_return co_await install(updater, offered);
}

} // namespace

Command selfUpdateCommand() {
    return Command{
        QStringLiteral("self-update"), kUsage,
        QStringLiteral("Cherche une nouvelle version de Marlune et l'installe à la place de l'AppImage "
                       "en cours ; --check cherche seulement."),
        runSelfUpdate};
}
