// PythonRuntimeService: the components list, computed from the install and the latest published versions.
#include "PythonRuntimeService.h"

#include "SetupError.h"
#include "ToolRunner.h"
#include "VersionOrder.h"

namespace {

using State = ComponentInfo::State;

const QString uvRepository = QStringLiteral("astral-sh/uv");
const QString withoutOptionalPackages = QStringLiteral(" (sans séparation voix lead / chœurs)");

// The output of `program argument`, trimmed; nothing when it cannot run or fails.
QCoro::Task<std::optional<QString>> versionOutput(QString program, QString argument,
                                                  QProcessEnvironment environment) {
    const QStringList arguments{argument};
    ToolRunOptions options;
    options.environment = environment;
    std::optional<QString> output;
    try {
        const QString text = co_await runTool(program, arguments, options);
        output = text.trimmed();
    } catch (const SetupError&) {
    }
    co_return output;
}

// Word `index` (0-based) of the first line, split at spaces; empty when there is none.
QString wordOfFirstLine(const QString& text, int index) {
    const QString firstLine = text.section(QLatin1Char('\n'), 0, 0);
    return firstLine.split(QLatin1Char(' '), Qt::SkipEmptyParts).value(index);
}

// `ok`, or `outdated` when a latest version is known and newer than the installed one.
State currentOrOutdated(const std::optional<QString>& installed, const std::optional<QString>& latest) {
    if (installed && latest && VersionOrder::compare(*latest, *installed) > 0)
        return State{State::Kind::outdated};
    return State{State::Kind::ok};
}

} // namespace

QCoro::Task<> PythonRuntimeService::refreshComponents(bool online) {
    for (ComponentID id : Components::all())
        setComponentState(id, State{State::Kind::checking});
    for (ComponentID id : Components::all()) {
        const ComponentInfo row = co_await componentRow(id, online);
        setComponent(row);
    }
}

QCoro::Task<ComponentInfo> PythonRuntimeService::componentRow(ComponentID id, bool online) {
    ComponentInfo row{id, std::nullopt, std::nullopt, State{State::Kind::missing}};
    const ToolSources& tools = m_config.tools;
    const QProcessEnvironment environment = cleanEnvironment();
    const std::optional<QString> tag = manifest().backendTag;
    const bool engineInstalled = tag && isBackendInstalled(*tag);

    switch (id) {
    case ComponentID::ffmpeg: {
        row.latest = tools.downloads.versionOf(QStringLiteral("ffmpeg"));
        const std::optional<QString> ffmpeg = ffmpegPath();
        if (!ffmpeg)
            break;
        const QStringList ownVersions{tools.downloads.versionOf(QStringLiteral("ffmpeg")),
                                      tools.downloads.versionOf(QStringLiteral("ffmpegFallback"))};
        const std::optional<QString> recorded = manifest().ffmpegVersion;
        if (*ffmpeg == m_layout.ownFFmpeg() && recorded && ownVersions.contains(*recorded)) {
            row.installed = *recorded;
        } else {
            const QString program = *ffmpeg;
            const QString argument = QStringLiteral("-version");
            const std::optional<QString> output = co_await versionOutput(program, argument, environment);
            const QString version = output ? wordOfFirstLine(*output, 2) : QString();
            row.installed = version.isEmpty() ? QStringLiteral("?") : version;
        }
        row.state = State{State::Kind::ok};
        break;
    }
    case ComponentID::fpcalc: {
        row.latest = tools.downloads.versionOf(QStringLiteral("fpcalc"));
        if (InstallLayout::isExecutable(m_layout.fpcalcPath())) {
            row.installed = manifest().fpcalcVersion.value_or(*row.latest);
            row.state = State{State::Kind::ok};
            break;
        }
        for (const QString& candidate : m_config.systemTools.fpcalcCandidates) {
            if (InstallLayout::isExecutable(candidate)) {
                row.installed = QStringLiteral("système (%1)").arg(candidate);
                row.state = State{State::Kind::ok};
                break;
            }
        }
        break;
    }
    case ComponentID::jsRuntime:
        row.latest = tools.downloads.versionOf(QStringLiteral("qjs"));
        if (InstallLayout::isExecutable(m_layout.qjsPath())) {
            row.installed = row.latest;
            row.state = State{State::Kind::ok};
        }
        break;
    case ComponentID::uv: {
        if (online)
            row.latest = co_await latestRelease(uvRepository);
        const QString uv = m_layout.uvPath();
        if (!InstallLayout::isExecutable(uv))
            break;
        const QString argument = QStringLiteral("--version");
        const std::optional<QString> output = co_await versionOutput(uv, argument, environment);
        if (output)
            row.installed = wordOfFirstLine(*output, 1);
        row.state = currentOrOutdated(row.installed, row.latest);
        break;
    }
    case ComponentID::python: {
        row.latest = QStringLiteral("3.12");
        const QString python = m_layout.backendPython(tag.value_or(QStringLiteral("none")));
        if (!InstallLayout::isExecutable(python))
            break;
        const QString argument = QStringLiteral("--version");
        const std::optional<QString> output = co_await versionOutput(python, argument, environment);
        if (!output)
            break;
        const QString version = wordOfFirstLine(*output, 1);
        row.installed = QStringLiteral("Python %1").arg(version);
        row.state =
            State{version.startsWith(QLatin1String("3.12")) ? State::Kind::ok : State::Kind::outdated};
        break;
    }
    case ComponentID::compiler: {
        const std::optional<QString> description = co_await compilerDescription();
        if (description) {
            row.installed = description;
            row.state = State{State::Kind::ok};
        }
        break;
    }
    case ComponentID::backend: {
        if (online) {
            const QString repository = engineRepository();
            row.latest = co_await latestRelease(repository);
        }
        if (!engineInstalled)
            break;
        const bool skipped = manifest().skippedPackages && !manifest().skippedPackages->isEmpty();
        row.installed = skipped ? *tag + withoutOptionalPackages : *tag;
        bool completable = false; // a compiler appeared since the engine was installed without them
        if (skipped)
            completable = co_await hasCompiler();
        row.state = completable ? State{State::Kind::outdated} : currentOrOutdated(tag, row.latest);
        break;
    }
    case ComponentID::ytdlp: {
        if (online) {
            const QString package = QStringLiteral("yt-dlp");
            row.latest = co_await latestPyPIVersion(package);
        }
        row.installed = co_await ytDlpVersion();
        if (row.installed)
            row.state = currentOrOutdated(row.installed, row.latest);
        break;
    }
    case ComponentID::models: {
        if (!engineInstalled)
            break;
        const QStringList failed = manifest().modelsFailed.value_or(QStringList());
        if (manifest().modelsWarmedTag != tag) {
            row.installed = QStringLiteral("téléchargés au 1er usage");
            row.state = State{State::Kind::outdated};
        } else if (failed.isEmpty()) {
            row.installed = QStringLiteral("préchargés");
            row.state = State{State::Kind::ok};
        } else {
            row.installed = QStringLiteral("partiels (%1)").arg(failed.join(QStringLiteral(", ")));
            row.state = State{State::Kind::outdated};
        }
        break;
    }
    }
    co_return row;
}
