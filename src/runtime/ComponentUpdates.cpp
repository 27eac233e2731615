// PythonRuntimeService: the update-everything operation and the later enabling of the compiler tools.
#include "PythonRuntimeService.h"

#include "SetupError.h"
#include "platform/SettingsStore.h"

namespace {

using State = ComponentInfo::State;

const QString busyLine = QStringLiteral("⏳ Une opération est déjà en cours");
const QString rebuildLine =
    QStringLiteral("🔄 Réinstallation du moteur avec la séparation voix lead / chœurs…");

bool hasSkippedPackages(const InstallManifest& manifest) {
    return manifest.skippedPackages && !manifest.skippedPackages->isEmpty();
}

} // namespace

QCoro::Task<UpdateOutcome> PythonRuntimeService::updateAll(Report sink) {
    const Report say = [this, sink](const QString& line) {
        log(line);
        if (sink)
            sink(line);
    };
    UpdateOutcome outcome;
    if (!tryBeginOperation()) {
        say(busyLine);
        co_return outcome;
    }
    outcome.ran = true;
    co_await refreshComponents(true);

    bool restart = false;
    for (ComponentID id : Components::all()) {
        const State before = m_components.value(static_cast<qsizetype>(id)).state;
        setComponentState(id, State{State::Kind::working});
        State after = before;
        QString failure;
        try {
            after = co_await updateComponent(id, say, &restart);
        } catch (const std::exception& error) {
            failure = QString::fromUtf8(error.what());
        }
        if (!failure.isEmpty()) {
            say(QStringLiteral("❌ %1 : %2").arg(Components::displayName(id), failure));
            after = State::failed(failure);
        }
        setComponentState(id, after);
        outcome.components.append({id, after});
    }

    {
        const std::lock_guard<std::mutex> guard(m_opLock);
        manifest().lastUpdateCheck = QDateTime::currentDateTimeUtc();
    }
    saveManifest();
    outcome.needsRestart = restart || m_needsRestart;
    say(outcome.needsRestart
            ? QStringLiteral("✅ Mises à jour terminées — redémarrez le backend pour appliquer")
            : QStringLiteral("✅ Mises à jour terminées"));
    co_await refreshComponents(true);
    endOperation();
    co_return outcome;
}

// Updates one component; returns its state afterwards and throws SetupError when its update failed.
QCoro::Task<ComponentInfo::State> PythonRuntimeService::updateComponent(ComponentID id, Report say,
                                                                        bool* restart) {
    const ToolSources& tools = m_config.tools;
    const auto isCurrent = [&tools](const std::optional<QString>& recorded, const QString& tool,
                                    const QString& executable) {
        return recorded == tools.downloads.versionOf(tool) && InstallLayout::isExecutable(executable);
    };
    const State ok{State::Kind::ok};

    switch (id) {
    case ComponentID::ffmpeg:
        if (!isCurrent(manifest().ffmpegVersion, QStringLiteral("ffmpeg"), m_layout.ownFFmpeg()) ||
            !InstallLayout::isExecutable(m_layout.ownFFprobe()))
            co_await installFFmpeg(say);
        co_return ok;
    case ComponentID::fpcalc:
        if (!isCurrent(manifest().fpcalcVersion, QStringLiteral("fpcalc"), m_layout.fpcalcPath()))
            co_await installFpcalc(say);
        co_return ok;
    case ComponentID::jsRuntime:
        if (!isCurrent(manifest().qjsVersion, QStringLiteral("qjs"), m_layout.qjsPath()))
            co_await installQuickJS(say);
        co_return ok;
    case ComponentID::uv:
        co_await installUV(say);
        co_return ok;
    case ComponentID::python:
        co_await installPython(say);
        co_return ok;
    case ComponentID::compiler: {
        const SettingsStore settings(m_config.settingsFile);
        if (!settings.installCompilerTools() || settings.compilerToolsDeclined())
            co_return m_components.value(static_cast<qsizetype>(id)).state;
        const bool present = co_await ensureCompilerTools(true, say);
        co_return present ? ok : State{State::Kind::missing};
    }
    case ComponentID::backend:
        co_await updateEngine(say, restart);
        co_return ok;
    case ComponentID::ytdlp:
        co_await updateYtDlp(say);
        co_return ok;
    case ComponentID::models:
        if (manifest().modelsWarmedTag != manifest().backendTag || !manifest().backendTag) {
            say(QStringLiteral("🔄 Modèles IA…"));
            co_await warmUpModels();
        }
        co_return ok;
    }
    co_return ok;
}

// Installs the latest engine release; completes the current one when a compiler appeared since it was
// installed without its optional packages. Sets `restart` when the running engine is now older.
QCoro::Task<> PythonRuntimeService::updateEngine(Report say, bool* restart) {
    const QString repository = engineRepository();
    const std::optional<QString> latest = co_await latestRelease(repository);
    if (!latest)
        throw SetupError(
            QStringLiteral("Impossible de déterminer la dernière version de Halvorn (GitHub inaccessible)."));
    const QString tag = *latest;
    say(QStringLiteral("🔄 Moteur Halvorn %1").arg(tag));

    bool force = false;
    if (manifest().backendTag == tag && isBackendInstalled(tag) && hasSkippedPackages(manifest())) {
        const bool compiler = co_await hasCompiler();
        if (compiler && isRunningTag(tag)) {
            say(QStringLiteral("ℹ️ Réinstallation complète au prochain arrêt du moteur"));
        } else if (compiler) {
            say(rebuildLine);
            force = true;
        }
    }
    const bool installed = co_await installBackend(tag, force, say);
    if (installed && m_isRunning && m_runningTag != tag) {
        setNeedsRestart(true);
        *restart = true;
    }
}

QCoro::Task<bool> PythonRuntimeService::enableCompilerTools(Report sink) {
    const Report say = [this, sink](const QString& line) {
        log(line);
        if (sink)
            sink(line);
    };
    if (!tryBeginOperation()) {
        say(busyLine);
        co_return false;
    }
    {
        SettingsStore settings(m_config.settingsFile);
        settings.setInstallCompilerTools(true);
        settings.setCompilerToolsDeclined(false);
        settings.sync();
    }
    setComponentState(ComponentID::compiler, State{State::Kind::working});
    const bool present = co_await ensureCompilerTools(true, say);
    const std::optional<QString> tag = manifest().backendTag;
    if (present && tag && isBackendInstalled(*tag) && hasSkippedPackages(manifest())) {
        if (isRunningTag(*tag)) {
            say(QStringLiteral("ℹ️ Le moteur sera complété à la prochaine mise à jour (moteur en cours "
                               "d'exécution)"));
        } else {
            say(rebuildLine);
            QString failure;
            try {
                const QString installedTag = *tag;
                co_await installBackend(installedTag, true, say);
            } catch (const SetupError& error) {
                failure = error.message();
            }
            if (!failure.isEmpty())
                say(QStringLiteral("❌ %1 : %2").arg(Components::displayName(ComponentID::backend), failure));
        }
    }
    co_await refreshComponents(true);
    endOperation();
    co_return true;
}
