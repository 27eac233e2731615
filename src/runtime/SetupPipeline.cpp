// PythonRuntimeService: the first-run setup, every component in one ordered pass.
#include "PythonRuntimeService.h"

#include "SetupError.h"
#include "SetupStep.h"
#include "platform/SettingsStore.h"

#include <QDir>
#include <QFileInfo>
#include <QTimer>

namespace {
const QString checking = QStringLiteral("Vérification…");
const QString ready = QStringLiteral("✓ Prêt");
} // namespace

bool PythonRuntimeService::hasPreviousInstall() const {
    return manifest().backendTag.has_value() || QFileInfo(m_layout.backendsDir()).isDir() ||
           InstallLayout::isExecutable(m_layout.uvPath());
}

void PythonRuntimeService::runSetup(SetupProgress progress, SetupCompletion completion) {
    QTimer::singleShot(0, this, [this, progress, completion] {
        // Runs on by itself; the task ends once the pipeline has called `completion`.
        QCoro::Task<> pipeline = setupPipeline(progress, completion);
        Q_UNUSED(pipeline);
    });
}

QCoro::Task<> PythonRuntimeService::setupPipeline(SetupProgress progress, SetupCompletion completion) {
    const auto finish = [this, completion](const std::optional<QString>& error) {
        onOwnThread([completion, error] {
            if (completion)
                completion(error);
        });
    };
    if (!tryBeginOperation()) {
        const QString busy = QStringLiteral("⏳ Une opération est déjà en cours");
        log(busy);
        finish(busy);
        co_return;
    }
    const SetupProgress report = [this, progress](const QString& title, const QString& detail,
                                                  double fraction) {
        onOwnThread([progress, title, detail, fraction] {
            if (progress)
                progress(title, detail, fraction);
        });
        log(QStringLiteral("[%1] %2").arg(title, detail));
    };

    std::optional<QString> failure;
    try {
        co_await setupSteps(report);
    } catch (const std::exception& error) {
        failure = QString::fromUtf8(error.what());
    }
    if (failure)
        log(QStringLiteral("❌ %1").arg(*failure));
    co_await refreshComponents(true);
    endOperation();
    finish(failure);
}

// The steps after the busy mark; throws SetupError when a required step fails.
QCoro::Task<> PythonRuntimeService::setupSteps(SetupProgress report) {
    // The detail lines of a step's installer, reported under its title at `fraction`.
    const auto detailsOf = [&report](const QString& title, double fraction) -> Report {
        return [report, title, fraction](const QString& detail) { report(title, detail, fraction); };
    };
    const ToolSources& tools = m_config.tools;

    if (!QDir().mkpath(m_layout.root()))
        throw SetupError(
            QStringLiteral("Impossible de créer le dossier d'installation %1").arg(m_layout.root()));
    migrateLegacyInstall();

    // FFmpeg (required).
    report(SetupTitle::ffmpeg, checking, 0.02);
    const QStringList ffmpegVersions{tools.downloads.versionOf(QStringLiteral("ffmpeg")),
                                     tools.downloads.versionOf(QStringLiteral("ffmpegFallback"))};
    const bool ffmpegInPlace = InstallLayout::isExecutable(m_layout.ownFFmpeg()) &&
                               InstallLayout::isExecutable(m_layout.ownFFprobe()) &&
                               manifest().ffmpegVersion && ffmpegVersions.contains(*manifest().ffmpegVersion);
    if (!ffmpegInPlace) {
        const Report details = detailsOf(SetupTitle::ffmpeg, 0.05);
        co_await installFFmpeg(details);
    }
    report(SetupTitle::ffmpeg, ready, 0.10);

    // Audio tools (optional).
    report(SetupTitle::audioTools, checking, 0.11);
    if (!InstallLayout::isExecutable(m_layout.fpcalcPath()) ||
        manifest().fpcalcVersion != tools.downloads.versionOf(QStringLiteral("fpcalc"))) {
        QString warning;
        try {
            const Report details = detailsOf(SetupTitle::audioTools, 0.12);
            co_await installFpcalc(details);
        } catch (const SetupError& error) {
            warning = error.message();
        }
        if (!warning.isEmpty())
            log(QStringLiteral("⚠️ fpcalc non installé (identification des morceaux désactivée) : %1")
                    .arg(warning));
    }
    report(SetupTitle::audioTools, ready, 0.14);

    // JavaScript runtime (optional).
    report(SetupTitle::jsRuntime, checking, 0.15);
    if (!InstallLayout::isExecutable(m_layout.qjsPath()) ||
        manifest().qjsVersion != tools.downloads.versionOf(QStringLiteral("qjs"))) {
        QString warning;
        try {
            const Report details = detailsOf(SetupTitle::jsRuntime, 0.16);
            co_await installQuickJS(details);
        } catch (const SetupError& error) {
            warning = error.message();
        }
        if (!warning.isEmpty())
            log(QStringLiteral(
                    "⚠️ QuickJS non installé (certaines vidéos YouTube peuvent échouer) : %1")
                    .arg(warning));
    }
    report(SetupTitle::jsRuntime, ready, 0.18);

    // uv (required to install; an update failure is only a warning, logged by the installer).
    report(SetupTitle::uv, checking, 0.19);
    {
        const Report details = detailsOf(SetupTitle::uv, 0.20);
        co_await installUV(details);
    }
    report(SetupTitle::uv, ready, 0.24);

    // Python (required).
    report(SetupTitle::python, QStringLiteral("Installation de Python 3.12…"), 0.25);
    {
        const Report details = detailsOf(SetupTitle::python, 0.27);
        co_await installPython(details);
    }
    report(SetupTitle::python, ready, 0.30);

    // Compiler tools (optional, never fails).
    report(SetupTitle::compiler, checking, 0.305);
    bool compiler = false;
    {
        const SettingsStore settings(m_config.settingsFile);
        const bool allowInstall = settings.installCompilerTools() && !settings.compilerToolsDeclined();
        const Report details = detailsOf(SetupTitle::compiler, 0.307);
        try {
            compiler = co_await ensureCompilerTools(allowInstall, details);
        } catch (const SetupError& error) {
            log(QStringLiteral("⚠️ %1").arg(error.message()));
        }
    }
    report(SetupTitle::compiler,
           compiler ? QStringLiteral("✓ Prêts") : QStringLiteral("Non installés (optionnel)"), 0.31);
    const bool rebuild = compiler && manifest().skippedPackages && !manifest().skippedPackages->isEmpty();
    if (rebuild)
        log(QStringLiteral("🔄 Réinstallation du moteur avec la séparation voix lead / chœurs…"));

    // Engine (required).
    report(SetupTitle::engine, QStringLiteral("Recherche de la dernière version…"), 0.31);
    const QString repository = engineRepository();
    const std::optional<QString> latest = co_await latestRelease(repository);
    const std::optional<QString> tag = latest ? latest : manifest().backendTag;
    if (!tag)
        throw SetupError(
            QStringLiteral("Impossible de déterminer la dernière version de Halvorn (GitHub inaccessible)."));
    {
        const QString engineTag = *tag;
        const Report details = detailsOf(SetupTitle::engine, 0.45);
        co_await installBackend(engineTag, rebuild, details);
    }
    report(SetupTitle::engine, QStringLiteral("✓ Halvorn %1 installé").arg(*tag), 0.70);

    // yt-dlp (optional).
    report(SetupTitle::ytdlp, QStringLiteral("Mise à jour…"), 0.71);
    {
        QString warning;
        try {
            const Report details = detailsOf(SetupTitle::ytdlp, 0.72);
            co_await updateYtDlp(details);
        } catch (const SetupError& error) {
            warning = error.message();
        }
        if (!warning.isEmpty())
            log(QStringLiteral("⚠️ yt-dlp non mis à jour : %1").arg(warning));
    }
    report(SetupTitle::ytdlp, ready, 0.74);

    // AI models (optional).
    report(SetupTitle::models, QStringLiteral("Téléchargement (peut prendre plusieurs minutes)…"), 0.75);
    {
        QString warning;
        try {
            const Report details = detailsOf(SetupTitle::models, 0.85);
            co_await warmUpModels(details);
        } catch (const SetupError& error) {
            warning = error.message();
        }
        if (!warning.isEmpty())
            log(QStringLiteral("⚠️ Préchargement des modèles interrompu : %1").arg(warning));
    }
    report(SetupTitle::models, QStringLiteral("✓ Prêts"), 0.95);
    {
        const std::lock_guard<std::mutex> guard(m_opLock);
        manifest().lastUpdateCheck = QDateTime::currentDateTimeUtc();
    }
    saveManifest();
    report(SetupTitle::start, QStringLiteral("Configuration terminée ✓"), 0.97);
}
