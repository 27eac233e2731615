// Tool provisioning of PythonRuntimeService: FFmpeg, fpcalc, QuickJS, uv and uv's Python.
#include "PythonRuntimeService.h"

#include "ReleaseLookup.h"
#include "SetupError.h"
#include "ToolInstall.h"
#include "ToolRunner.h"
#include "VersionOrder.h"

#include <QDir>

namespace {

const QString uvRepository = QStringLiteral("astral-sh/uv");
const QString versionProbe = QStringLiteral("-version");

// One pinned download installed to `destination` (taken out of the archive as `nameInArchive`).
struct PinnedTool {
    QString tool;
    QString nameInArchive;
    QString destination;
    std::optional<QString> probeArgument;
};

// Installs each tool in turn from its pinned row; throws SetupError at the first failure, before any
// download when a row has no pinned digest for this platform.
QCoro::Task<> installPinned(ToolSources tools, QList<PinnedTool> parts) {
    for (const PinnedTool& part : parts) {
        const FixedDownload row = tools.pinnedRow(part.tool);
        const ToolInstall install{tools.addressOf(row), row.form,         row.sha256,
                                  part.nameInArchive,   part.destination, part.probeArgument};
        co_await install.run();
    }
}

} // namespace

QProcessEnvironment PythonRuntimeService::uvEnvironment() const {
    QProcessEnvironment environment = cleanEnvironment();
    environment.insert(QStringLiteral("UV_PYTHON_INSTALL_DIR"), QDir(m_layout.pythonDir()).absolutePath());
    environment.insert(QStringLiteral("UV_CACHE_DIR"), QDir(m_layout.uvCacheDir()).absolutePath());
    environment.insert(QStringLiteral("UV_PYTHON_PREFERENCE"), QStringLiteral("only-managed"));
    environment.insert(QStringLiteral("UV_NO_PROGRESS"), QStringLiteral("1"));
    return environment;
}

QCoro::Task<std::optional<QString>> PythonRuntimeService::latestRelease(QString repo) const {
    const std::optional<QString> tag = co_await ReleaseLookup::latestRelease(m_config.tools.addresses, repo);
    co_return tag;
}

QCoro::Task<std::optional<QString>> PythonRuntimeService::latestPyPIVersion(QString package) const {
    const std::optional<QString> version =
        co_await ReleaseLookup::latestPyPIVersion(m_config.tools.addresses, package);
    co_return version;
}

QCoro::Task<> PythonRuntimeService::installFFmpeg(Report report) {
    const ToolSources& tools = m_config.tools;
    const QString version = tools.downloads.versionOf(QStringLiteral("ffmpeg"));
    report(QStringLiteral("Téléchargement FFmpeg %1 (%2)…").arg(version, tools.architecture()));
    const QList<PinnedTool> primary{
        {QStringLiteral("ffmpeg"), QString(), m_layout.ownFFmpeg(), versionProbe},
        {QStringLiteral("ffprobe"), QString(), m_layout.ownFFprobe(), versionProbe}};
    QString failure;
    try {
        co_await installPinned(tools, primary);
    } catch (const SetupError& error) {
        failure = error.message();
    }
    if (failure.isEmpty()) {
        manifest().ffmpegVersion = version;
        saveManifest();
        report(QStringLiteral("✅ FFmpeg %1 installé").arg(version));
        co_return;
    }

    if (tools.row(QStringLiteral("ffmpegFallback"))) {
        const QString fallbackVersion = tools.downloads.versionOf(QStringLiteral("ffmpegFallback"));
        report(QStringLiteral("⚠️ Source principale indisponible (%1) — essai %2")
                   .arg(failure, tools.fallbackHost()));
        failure.clear();
        const QList<PinnedTool> fallback{
            {QStringLiteral("ffmpegFallback"), QStringLiteral("ffmpeg"), m_layout.ownFFmpeg(), versionProbe},
            {QStringLiteral("ffprobeFallback"), QStringLiteral("ffprobe"), m_layout.ownFFprobe(),
             versionProbe}};
        try {
            co_await installPinned(tools, fallback);
        } catch (const SetupError& error) {
            failure = error.message();
        }
        if (failure.isEmpty()) {
            manifest().ffmpegVersion = fallbackVersion;
            saveManifest();
            report(QStringLiteral("✅ FFmpeg %1 installé (%2)").arg(fallbackVersion, tools.fallbackName()));
            co_return;
        }
        report(QStringLiteral("⚠️ %1 indisponible (%2)").arg(tools.fallbackHost(), failure));
    } else {
        report(QStringLiteral("⚠️ Source principale indisponible (%1)").arg(failure));
    }

    const std::optional<QString> ffmpeg = ffmpegPath();
    if (ffmpeg && ffprobePath()) {
        report(QStringLiteral("✅ FFmpeg système utilisé : %1").arg(*ffmpeg));
        co_return;
    }
    throw SetupError(
        QStringLiteral("FFmpeg n'a pas pu être téléchargé.\nVérifiez votre connexion internet, ou "
                       "installez-le avec : sudo apt install ffmpeg"));
}

QCoro::Task<> PythonRuntimeService::installFpcalc(Report report) {
    const ToolSources& tools = m_config.tools;
    const QString version = tools.downloads.versionOf(QStringLiteral("fpcalc"));
    report(QStringLiteral("Téléchargement Chromaprint %1…").arg(version));
    const QList<PinnedTool> fpcalc{
        {QStringLiteral("fpcalc"), QStringLiteral("fpcalc"), m_layout.fpcalcPath(), versionProbe}};
    co_await installPinned(tools, fpcalc);
    manifest().fpcalcVersion = version;
    saveManifest();
    log(QStringLiteral("✅ fpcalc installé"));
}

QCoro::Task<> PythonRuntimeService::installQuickJS(Report report) {
    const ToolSources& tools = m_config.tools;
    const QString version = tools.downloads.versionOf(QStringLiteral("qjs"));
    report(QStringLiteral("Téléchargement QuickJS %1…").arg(version));
    // No run check: QuickJS has no version option to prove it with.
    const QList<PinnedTool> qjs{
        {QStringLiteral("qjs"), QStringLiteral("qjs"), m_layout.qjsPath(), std::nullopt}};
    co_await installPinned(tools, qjs);
    manifest().qjsVersion = version;
    saveManifest();
    log(QStringLiteral("✅ QuickJS installé"));
}

QCoro::Task<> PythonRuntimeService::installUV(Report report) {
    const QString uv = m_layout.uvPath();
    const std::optional<FixedDownload> row = m_config.tools.row(QStringLiteral("uv"));
    // The release of `version`, or the latest one; throws SetupError when this platform has no build.
    const auto releaseInstall = [&](const std::optional<QString>& version) {
        if (!row || (version && row->versionedPath.isEmpty()))
            throw SetupError(QStringLiteral("Aucune version de uv pour cette plateforme (%1)")
                                 .arg(m_config.tools.platform));
        const QString path = version ? row->pathForVersion(*version) : row->path;
        return ToolInstall{
            m_config.tools.addressOf(*row, path), row->form, std::nullopt, QStringLiteral("uv"), uv,
            QStringLiteral("--version")};
    };

    if (InstallLayout::isExecutable(uv)) {
        QString installed; // an uv that does not answer counts as older than any release
        try {
            const QStringList arguments{QStringLiteral("--version")};
            const ToolRunOptions options;
            const QString output = co_await runTool(uv, arguments, options);
            installed = output.trimmed().section(QLatin1Char(' '), 1, 1);
        } catch (const SetupError&) {
        }
        const std::optional<QString> latest = co_await latestRelease(uvRepository);
        if (!latest || VersionOrder::compare(installed, *latest) >= 0)
            co_return;
        report(QStringLiteral("Mise à jour de uv %1").arg(*latest));
        QString failure;
        try {
            const ToolInstall update = releaseInstall(latest);
            co_await update.run();
        } catch (const SetupError& error) {
            failure = error.message();
        }
        if (!failure.isEmpty())
            log(QStringLiteral("⚠️ uv non mis à jour : %1").arg(failure));
        co_return;
    }

    report(QStringLiteral("Téléchargement de uv…"));
    QString failure;
    try {
        const ToolInstall install = releaseInstall(std::nullopt);
        co_await install.run();
    } catch (const SetupError& error) {
        failure = error.message();
    }
    if (!failure.isEmpty())
        throw SetupError(QStringLiteral("Impossible de télécharger uv : %1").arg(failure));
}

QCoro::Task<> PythonRuntimeService::installPython(Report report) {
    const QStringList arguments{QStringLiteral("python"), QStringLiteral("install"), QStringLiteral("3.12")};
    ToolRunOptions options;
    options.environment = uvEnvironment();
    options.onLine = report;
    const QString uv = m_layout.uvPath();
    co_await runTool(uv, arguments, options);
}
