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

// The pinned row of `tool` as an install to `destination`; throws SetupError when there is no pinned row.
ToolInstall pinnedInstall(const ToolSources& tools, const QString& tool, const QString& nameInArchive,
                          const QString& destination, std::optional<QString> probeArgument) {
    const FixedDownload row = tools.pinnedRow(tool);
    return ToolInstall{tools.addressOf(row), row.form,    row.sha256,
                       nameInArchive,        destination, std::move(probeArgument)};
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
    co_return co_await ReleaseLookup::latestRelease(m_config.tools.addresses, repo);
}

QCoro::Task<std::optional<QString>> PythonRuntimeService::latestPyPIVersion(QString package) const {
    co_return co_await ReleaseLookup::latestPyPIVersion(m_config.tools.addresses, package);
}

QCoro::Task<> PythonRuntimeService::installFFmpeg(Report report) {
    const ToolSources& tools = m_config.tools;
    const QString version = tools.downloads.versionOf(QStringLiteral("ffmpeg"));
    report(QStringLiteral("Téléchargement FFmpeg %1 (%2)…").arg(version, tools.architecture()));
    QString failure;
    try {
        co_await pinnedInstall(tools, QStringLiteral("ffmpeg"), QString(), m_layout.ownFFmpeg(), versionProbe)
            .run();
        co_await pinnedInstall(tools, QStringLiteral("ffprobe"), QString(), m_layout.ownFFprobe(),
                               versionProbe)
            .run();
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
        try {
            co_await pinnedInstall(tools, QStringLiteral("ffmpegFallback"), QStringLiteral("ffmpeg"),
                                   m_layout.ownFFmpeg(), versionProbe)
                .run();
            co_await pinnedInstall(tools, QStringLiteral("ffprobeFallback"), QStringLiteral("ffprobe"),
                                   m_layout.ownFFprobe(), versionProbe)
                .run();
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
    co_await pinnedInstall(tools, QStringLiteral("fpcalc"), QStringLiteral("fpcalc"), m_layout.fpcalcPath(),
                           versionProbe)
        .run();
    manifest().fpcalcVersion = version;
    saveManifest();
    log(QStringLiteral("✅ fpcalc installé"));
}

QCoro::Task<> PythonRuntimeService::installQuickJS(Report report) {
    const ToolSources& tools = m_config.tools;
    const QString version = tools.downloads.versionOf(QStringLiteral("qjs"));
    report(QStringLiteral("Téléchargement QuickJS %1…").arg(version));
    co_await pinnedInstall(tools, QStringLiteral("qjs"), QStringLiteral("qjs"), m_layout.qjsPath(),
                           std::nullopt)
        .run();
    manifest().qjsVersion = version;
    saveManifest();
    log(QStringLiteral("✅ QuickJS installé"));
}

QCoro::Task<> PythonRuntimeService::installUV(Report report) {
    const std::optional<FixedDownload> row = m_config.tools.row(QStringLiteral("uv"));
    const QString uv = m_layout.uvPath();
    const auto installFrom = [&](const QString& path) {
        return ToolInstall{
            m_config.tools.addressOf(*row, path), row->form, std::nullopt, QStringLiteral("uv"), uv,
            QStringLiteral("--version")};
    };

    if (InstallLayout::isExecutable(uv)) {
        QString installed;
        try {
            const QStringList arguments{QStringLiteral("--version")};
            installed = (co_await runTool(uv, arguments)).trimmed().section(QLatin1Char(' '), 1, 1);
        } catch (const SetupError&) {
            // An uv that does not answer counts as older than any release.
        }
        const std::optional<QString> latest = co_await latestRelease(uvRepository);
        if (!latest || VersionOrder::compare(installed, *latest) >= 0)
            co_return;
        report(QStringLiteral("Mise à jour de uv %1").arg(*latest));
        QString failure;
        try {
            if (!row || row->versionedPath.isEmpty())
                throw SetupError(QStringLiteral("Aucune version de uv pour cette plateforme (%1)")
                                     .arg(m_config.tools.platform));
            co_await installFrom(row->pathForVersion(*latest)).run();
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
        if (!row)
            throw SetupError(QStringLiteral("Aucune version de uv pour cette plateforme (%1)")
                                 .arg(m_config.tools.platform));
        co_await installFrom(row->path).run();
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
    co_await runTool(m_layout.uvPath(), arguments, options);
}
