#include "SeparateCommand.h"

#include "Console.h"
#include "EngineAddress.h"
#include "ProgressBar.h"
#include "StemOption.h"
#include "app/AppState.h"
#include "audio/ExportService.h"
#include "audio/MixExportService.h"
#include "audio/StemTrack.h"
#include "engine_client/BackendService.h"
#include "platform/UserError.h"
#include "runtime/PythonRuntimeService.h"

#include <QCoro/QCoroSignal>
#include <QDir>
#include <QFileInfo>

namespace {

const QString kUsage = QStringLiteral(
    "separate FICHIER|ADRESSE [--stems vocals,drums,…] [--format wav|mp3] [--out DOSSIER] [--mix] "
    "[--engine-url URL]");

struct Options {
    QString input;
    QSet<StemKind> stems;
    ExportFormat format = ExportFormat::wav;
    QString outDir = QDir::currentPath();
    bool mix = false;
    QUrl engine;
};

std::optional<Options> parse(QStringList arguments, QString* error) {
    Options options;
    const auto address = takeEngineAddress(arguments, error);
    if (!address)
        return std::nullopt;
    options.engine = *address;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (argument == QLatin1String("--mix")) {
            options.mix = true;
        } else if (argument == QLatin1String("--stems") && hasValue) {
            const std::optional<QList<StemKind>> chosen = parseStemOption(arguments[++i], error);
            if (!chosen)
                return std::nullopt;
            options.stems = QSet<StemKind>(chosen->begin(), chosen->end());
        } else if (argument == QLatin1String("--format") && hasValue) {
            const QString format = arguments[++i].toLower();
            if (format != QLatin1String("wav") && format != QLatin1String("mp3")) {
                *error = QStringLiteral("Format inconnu : %1 (wav ou mp3)").arg(format);
                return std::nullopt;
            }
            options.format = format == QLatin1String("mp3") ? ExportFormat::mp3 : ExportFormat::wav;
        } else if (argument == QLatin1String("--out") && hasValue) {
            options.outDir = QFileInfo(arguments[++i]).absoluteFilePath();
        } else if (argument.startsWith(QLatin1String("--")) || !options.input.isEmpty()) {
            *error = QStringLiteral("Argument inattendu : %1").arg(argument);
            return std::nullopt;
        } else {
            options.input = argument;
        }
    }
    if (options.input.isEmpty()) {
        *error = QStringLiteral("Indiquez un fichier ou une adresse.");
        return std::nullopt;
    }
    return options;
}

// "\r[####······] 42 % Séparation des pistes… — stage" on standard error.
void showProgress(const JobProgress& progress) {
    QString text = progress.phase;
    if (progress.message != progress.phase)
        text += QStringLiteral(" — ") + progress.message;
    ProgressBar::show(progress.percent, text);
}

// The studio's stem loading: the job's stems, else the seven fallback kinds, each downloaded to the cache.
QCoro::Task<QList<StemTrackPtr>> loadStems(BackendService& backend, StemJob job) {
    QList<StemKind> kinds;
    for (const StemFile& stem : job.stems)
        kinds.append(stem.kind);
    if (kinds.isEmpty())
        kinds = StemKinds::studioFallback();
    QList<StemTrackPtr> tracks;
    for (StemKind kind : kinds) {
        const QString jobId = job.id;
        const std::optional<QString> file = co_await backend.downloadStem(jobId, kind);
        if (!file)
            continue;
        StemFile stem = StemFile::forJob(job.id, kind);
        stem.localURL = QUrl::fromLocalFile(*file);
        tracks.append(std::make_shared<StemTrack>(stem, QUrl::fromLocalFile(*file)));
        Console::out(QStringLiteral("[Halvorn] ✅ Piste téléchargée: %1").arg(StemKinds::rawValue(kind)));
    }
    co_return tracks;
}

QCoro::Task<int> separate(QStringList arguments) {
    QString error;
    const std::optional<Options> options = parse(arguments, &error);
    if (!options) {
        Console::err(error + QStringLiteral("\nUtilisation : marlune ") + kUsage);
        co_return ExitCode::usage;
    }
    PythonRuntimeService& runtime = PythonRuntimeService::shared();
    BackendService::Config config = BackendService::defaultConfig();
    config.baseURL = options->engine;
    BackendService backend(config);
    AppState state(backend, runtime, options->engine.port(8000));
    state.setSelectedStems(options->stems);

    co_await state.startupSequence();
    const bool startedEngine = runtime.isRunning();
    if (state.screen() == AppScreen::setup) {
        Console::err(QStringLiteral("Moteur non installé : lancez « marlune engine install-reference »."));
        co_return ExitCode::failure;
    }
    if (!state.backendReady()) {
        Console::err(QStringLiteral("Le moteur ne répond pas (%1).").arg(options->engine.toString()));
        co_await runtime.stopBackend();
        co_return ExitCode::failure;
    }

    QObject::connect(&state, &AppState::jobProgressChanged, &state,
                     [&state] { showProgress(state.jobProgress()); });
    const bool isFile = QFileInfo(options->input).isFile();
    std::optional<QString> file;
    if (isFile)
        file = QFileInfo(options->input).absoluteFilePath();
    state.importScreen().setProcessing(true);
    const QString address = isFile ? QString() : options->input;
    co_await state.startImport(address, file);
    while (state.screen() == AppScreen::processing)
        co_await qCoro(&state, &AppState::screenChanged);
    Console::errRaw(QStringLiteral("\n"));

    int status = ExitCode::success;
    if (state.screen() != AppScreen::studio) {
        const auto message = state.importScreen().errorMessage();
        const bool cancelled = state.currentJob() && (state.currentJob()->status == JobStatus::cancelled ||
                                                      state.currentJob()->status == JobStatus::stopped);
        Console::err(message ? *message
                             : (cancelled ? JobStatuses::statusLabel(state.currentJob()->status)
                                          : QStringLiteral("La séparation a échoué.")));
        status = ExitCode::failure;
    } else {
        const StemJob job = *state.currentJob();
        const QList<StemTrackPtr> tracks = co_await loadStems(backend, job);
        if (tracks.isEmpty()) {
            Console::err(QStringLiteral("Aucune piste trouvée. Vérifiez les logs."));
            status = ExitCode::failure;
        } else {
            ExportService::Config exportConfig = ExportService::defaultConfig();
            exportConfig.reveal = [](const QString&) {};
            const ExportService exports(exportConfig);
            const QString title = job.title;
            const ExportFormat format = options->format;
            const QString outDir = options->outDir;
            try {
                QDir().mkpath(outDir);
                const QString folder = co_await exports.exportStems(tracks, title, format, outDir);
                Console::out(folder);
                if (options->mix) {
                    const QString mixPath =
                        QDir(outDir).filePath(MixExportService::defaultFileName(title, tracks, format));
                    const MixExportService mixer(exports);
                    co_await mixer.exportMix(tracks, format, mixPath);
                    Console::out(mixPath);
                }
            } catch (const UserError& exportError) {
                Console::err(exportError.message());
                status = ExitCode::failure;
            }
        }
    }
    if (startedEngine)
        co_await runtime.stopBackend();
    co_return status;
}

} // namespace

Command separateCommand() {
    return Command{
        QStringLiteral("separate"), kUsage,
        QStringLiteral("Sépare un morceau en pistes et les exporte (démarre le moteur au besoin)."),
        separate};
}
