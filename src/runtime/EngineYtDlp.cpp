// PythonRuntimeService: yt-dlp inside the engine's environment.
#include "PythonRuntimeService.h"

#include "SetupError.h"
#include "ToolRunner.h"

QCoro::Task<> PythonRuntimeService::updateYtDlp(Report report) {
    const QString tag = manifest().backendTag.value_or(QString());
    if (tag.isEmpty() || !isBackendInstalled(tag))
        throw SetupError(QStringLiteral("Backend non installé — configuration requise"));
    const QStringList arguments{QStringLiteral("pip"),       QStringLiteral("install"),
                                QStringLiteral("--python"),  m_layout.backendPython(tag),
                                QStringLiteral("--upgrade"), QStringLiteral("yt-dlp")};
    ToolRunOptions options;
    options.workingDirectory = m_layout.backendDir(tag);
    options.environment = uvEnvironment();
    options.onLine = report;
    const QString uv = m_layout.uvPath();
    co_await runTool(uv, arguments, options);
}

QCoro::Task<std::optional<QString>> PythonRuntimeService::ytDlpVersion() const {
    const QString tag = manifest().backendTag.value_or(QStringLiteral("none"));
    const QString python = m_layout.backendPython(tag);
    if (!InstallLayout::isExecutable(python))
        co_return std::nullopt;
    const QStringList arguments{QStringLiteral("-c"),
                                QStringLiteral("import yt_dlp.version as v; print(v.__version__)")};
    ToolRunOptions options;
    options.environment = cleanEnvironment();
    QString version;
    try {
        const QString output = co_await runTool(python, arguments, options);
        version = output.trimmed();
    } catch (const SetupError&) {
    }
    co_return version.isEmpty() ? std::nullopt : std::optional<QString>(version);
}
