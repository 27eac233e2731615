// PythonRuntimeService: the engine's install from the source archive of a release tag.
#include "PythonRuntimeService.h"

#include "EngineFolder.h"
#include "SetupError.h"
#include "TemporaryPaths.h"
#include "ToolDownloader.h"
#include "ToolRunner.h"

#include <QDir>
#include <QFileInfo>

namespace {

// Built with a C compiler; left out together when none can build them.
const QStringList optionalPackages{QStringLiteral("diffq"), QStringLiteral("audio-separator")};

// The tag as a version for the build ("v2.0.1" → "2.0.1").
QString buildVersion(const QString& tag) {
    return tag.startsWith(QLatin1Char('v')) ? tag.mid(1) : tag;
}

} // namespace

QCoro::Task<bool> PythonRuntimeService::installBackend(QString tag, bool force, Report report) {
    if (!report)
        report = [](const QString&) {};
    if (!force && isBackendInstalled(tag)) {
        bool recorded = false;
        {
            const std::lock_guard<std::mutex> guard(m_opLock);
            if (!manifest().backendTag) {
                manifest().backendTag = tag;
                recorded = true;
            }
        }
        if (recorded)
            saveManifest();
        report(QStringLiteral("%1 déjà installé").arg(tag));
        co_return false;
    }
    if (force && isRunningTag(tag))
        throw SetupError(
            QStringLiteral("Arrêtez le backend avant de réinstaller la version en cours (%1)").arg(tag));

    const QString folder = m_layout.backendDir(tag);
    QDir().mkpath(m_layout.backendsDir());
    QDir(folder).removeRecursively();

    report(QStringLiteral("Téléchargement de Halvorn %1…").arg(tag));
    const QUrl address =
        BaseAddresses::join(m_config.tools.addresses.githubWeb,
                            QStringLiteral("/%1/archive/refs/tags/%2.tar.gz").arg(engineRepository(), tag));
    TemporaryPaths temporary;
    const QString temporaryFolder = Places::tempDir();
    const QString downloaded = co_await ToolDownloader::download(address, temporaryFolder);
    const QString archive = temporary.add(downloaded);

    if (!QDir().mkpath(folder))
        throw SetupError(QStringLiteral("Archive du backend illisible : impossible de créer %1").arg(folder));
    const QStringList untar{QStringLiteral("xzf"), archive, QStringLiteral("-C"), folder,
                            QStringLiteral("--strip-components=1")};
    QString unreadable;
    try {
        const QString tar = QStringLiteral("/usr/bin/tar");
        co_await runTool(tar, untar);
    } catch (const SetupError& error) {
        unreadable = error.message();
    }
    if (!unreadable.isEmpty())
        throw SetupError(QStringLiteral("Archive du backend illisible : %1").arg(unreadable));
    if (!QFileInfo::exists(folder + QStringLiteral("/uv.lock")))
        throw SetupError(QStringLiteral("Archive du backend incomplète (uv.lock absent)."));

    report(QStringLiteral("Installation des dépendances Python (plusieurs minutes la première fois)…"));
    QStringList skipped;
    const bool compiler = co_await hasCompiler();
    if (!compiler) {
        report(QStringLiteral(
            "ℹ️ Aucun compilateur utilisable : la séparation voix lead / chœurs sera désactivée"));
        skipped = optionalPackages;
    }
    QString syncFailure;
    try {
        co_await syncEngine(tag, folder, skipped);
    } catch (const SetupError& error) {
        syncFailure = error.message();
    }
    if (!syncFailure.isEmpty() && skipped.isEmpty()) {
        report(QStringLiteral("⚠️ Compilation de diffq impossible — installation sans la séparation voix "
                              "lead / chœurs"));
        skipped = optionalPackages;
        syncFailure.clear();
        try {
            co_await syncEngine(tag, folder, skipped);
        } catch (const SetupError& error) {
            syncFailure = error.message();
        }
    }
    if (!syncFailure.isEmpty())
        throw SetupError(QStringLiteral("uv sync a échoué pour %1 : %2").arg(tag, syncFailure));

    QString importFailure;
    try {
        const QString python = m_layout.backendPython(tag);
        const QProcessEnvironment environment = backendEnvironment(tag);
        co_await EngineFolder::checkImports(python, folder, environment);
    } catch (const SetupError& error) {
        importFailure = error.message();
    }
    if (!importFailure.isEmpty())
        throw SetupError(QStringLiteral("Le backend %1 ne démarre pas : %2").arg(tag, importFailure));

    if (!EngineFolder::markReady(m_layout, tag))
        throw SetupError(QStringLiteral("Le backend %1 ne démarre pas : marqueur %2 impossible à écrire")
                             .arg(tag, m_layout.readyMarker(tag)));
    recordInstalledBackend(tag, skipped);
    co_return true;
}

// uv sync of the engine's locked dependencies, leaving out `skipped`; its output goes to the runtime log.
QCoro::Task<> PythonRuntimeService::syncEngine(QString tag, QString folder, QStringList skipped) {
    QStringList arguments{QStringLiteral("sync"), QStringLiteral("--frozen"), QStringLiteral("--python"),
                          QStringLiteral("3.12")};
    for (const QString& package : skipped)
        arguments << QStringLiteral("--no-install-package") << package;
    QProcessEnvironment environment = uvEnvironment();
    // A source archive has no version-control data to derive the package version from.
    environment.insert(QStringLiteral("SETUPTOOLS_SCM_PRETEND_VERSION"), buildVersion(tag));
    environment.insert(QStringLiteral("SETUPTOOLS_SCM_PRETEND_VERSION_FOR_HALVORN"), buildVersion(tag));
    ToolRunOptions options;
    options.workingDirectory = folder;
    options.environment = environment;
    options.onLine = [this](const QString& line) { log(line); };
    const QString uv = m_layout.uvPath();
    co_await runTool(uv, arguments, options);
}
