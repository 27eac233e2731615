#include "diagnostics/DiagnosticReport.h"

#include "diagnostics/EngineStatusText.h"
#include "diagnostics/LogTail.h"
#include "diagnostics/PlainHttpClient.h"
#include "diagnostics/ToolCapture.h"
#include "engine_client/BackendService.h"
#include "engine_client/CreateJobRequest.h"
#include "engine_client/TextPrefix.h"
#include "platform/Places.h"
#include "runtime/PythonRuntimeService.h"

#include <QCoro/QCoroTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

namespace {

const QString kInstallHint = QStringLiteral("installer via: sudo apt install ffmpeg");

QString mark(bool holds) {
    return holds ? QStringLiteral("✅") : QStringLiteral("❌");
}

QString firstLine(const QString& text) {
    return text.section(QLatin1Char('\n'), 0, 0);
}

QCoro::Task<> sleepOnTimer(std::chrono::milliseconds duration) {
    QCoro::Task<> sleep = QCoro::sleepFor(duration);
    co_await sleep;
}

QCoro::Task<> refreshWithLatestVersions(PythonRuntimeService& runtime) {
    QCoro::Task<> refresh = runtime.refreshComponents(true);
    co_await refresh;
}

} // namespace

QString DiagnosticReport::defaultTestVideoURL() {
    return QStringLiteral("https://www.youtube.com/watch?v=jNQXAC9IVRw");
}

DiagnosticReport::Config DiagnosticReport::defaultConfig() {
    const QString video = qEnvironmentVariable(testVideoVariable);
    Config config;
    config.systemFFmpegCandidates = {QStringLiteral("/usr/local/bin/ffmpeg"),
                                     QStringLiteral("/usr/bin/ffmpeg")};
    config.systemYtDlpCandidates = {QStringLiteral("/usr/local/bin/yt-dlp"),
                                    QStringLiteral("/usr/bin/yt-dlp")};
    config.whichProgram = QStringLiteral("/usr/bin/which");
    config.toolEnvironment = QProcessEnvironment::systemEnvironment();
    config.tempDir = Places::tempDir();
    config.testVideoURL = video.isEmpty() ? defaultTestVideoURL() : video;
    config.sleep = sleepOnTimer;
    config.refreshComponents = refreshWithLatestVersions;
    config.console = printConsoleLine;
    return config;
}

DiagnosticReport::DiagnosticReport(PythonRuntimeService& runtime, BackendService& backend, Config config,
                                   QObject* parent)
    : QObject(parent)
    , m_runtime(runtime)
    , m_backend(backend)
    , m_config(std::move(config))
    , m_http(std::make_unique<PlainHttpClient>()) {}

DiagnosticReport::~DiagnosticReport() = default;

void DiagnosticReport::appendLine(const QString& line) {
    if (m_config.console)
        m_config.console(QStringLiteral("[Diag] ") + line);
    const auto add = [this, line] {
        m_log += line + QLatin1Char('\n');
        Q_EMIT lineAppended(line);
        Q_EMIT logChanged();
    };
    if (QThread::currentThread() == thread())
        add();
    else
        QMetaObject::invokeMethod(this, add, Qt::QueuedConnection);
}

bool DiagnosticReport::begin() {
    if (m_running)
        return false;
    m_running = true;
    Q_EMIT runningChanged();
    m_log.clear();
    Q_EMIT logChanged();
    return true;
}

void DiagnosticReport::finish() {
    m_running = false;
    Q_EMIT runningChanged();
}

QCoro::Task<> DiagnosticReport::runFullDiagnostic() {
    if (!begin())
        co_return;
    appendLine(QStringLiteral("=== Diagnostic Marlune ===\n"));
    QCoro::Task<std::optional<QString>> ffmpegCheck = checkFFmpeg();
    const std::optional<QString> ffmpeg = co_await ffmpegCheck;
    QCoro::Task<> conversion = testConversion(ffmpeg);
    co_await conversion;
    QCoro::Task<> ytDlp = checkYtDlp();
    co_await ytDlp;
    QCoro::Task<> components = listComponents();
    co_await components;
    showBackendLog();
    QCoro::Task<> engine = checkEngine();
    co_await engine;
    appendLine(QStringLiteral("\n=== Fin du diagnostic ==="));
    finish();
}

QCoro::Task<std::optional<QString>> DiagnosticReport::locate(QString name, QStringList candidates) {
    std::optional<QString> found;
    for (const QString& candidate : candidates) {
        const bool executable = InstallLayout::isExecutable(candidate);
        appendLine(QStringLiteral("  %1 %2").arg(mark(executable), candidate));
        if (executable && !found)
            found = candidate;
    }
    const QStringList whichArguments{name};
    QCoro::Task<QString> which =
        ToolCapture::runTrimmed(m_config.whichProgram, whichArguments, m_config.toolEnvironment);
    const QString onPath = co_await which;
    appendLine(QStringLiteral("  which %1 → %2")
                   .arg(name, onPath.isEmpty() ? QStringLiteral("❌ introuvable") : onPath));
    if (!found && !onPath.isEmpty())
        found = onPath;
    co_return found;
}

QCoro::Task<std::optional<QString>> DiagnosticReport::checkFFmpeg() {
    appendLine(QStringLiteral("── ffmpeg ──────────────────────────────"));
    const QStringList candidates =
        QStringList{m_runtime.layout().ownFFmpeg()} + m_config.systemFFmpegCandidates;
    QCoro::Task<std::optional<QString>> located = locate(QStringLiteral("ffmpeg"), candidates);
    const std::optional<QString> ffmpeg = co_await located;
    const QStringList versionArguments{QStringLiteral("-version")};
    if (!ffmpeg) {
        appendLine(QStringLiteral("  ❌ ffmpeg ABSENT — ") + kInstallHint);
    } else {
        QCoro::Task<QString> version =
            ToolCapture::runTrimmed(*ffmpeg, versionArguments, m_config.toolEnvironment);
        const QString output = co_await version;
        appendLine(QStringLiteral("  version: ") + firstLine(output));
    }
    const std::optional<QString> ffprobe = m_runtime.ffprobePath();
    if (!ffprobe) {
        appendLine(QStringLiteral("  ❌ ffprobe ABSENT — ") + kInstallHint);
    } else {
        QCoro::Task<QString> version =
            ToolCapture::runTrimmed(*ffprobe, versionArguments, m_config.toolEnvironment);
        const QString output = co_await version;
        appendLine(QStringLiteral("  ✅ ffprobe: ") + *ffprobe);
        appendLine(QStringLiteral("  version: ") + firstLine(output));
    }
    co_return ffmpeg;
}

QCoro::Task<> DiagnosticReport::testConversion(std::optional<QString> ffmpeg) {
    appendLine(QStringLiteral("\n── Test conversion M4A → MP3 ──────────────"));
    if (!ffmpeg) {
        appendLine(QStringLiteral("  ⏭ Skipped (ffmpeg absent)"));
        co_return;
    }
    const QDir temp(m_config.tempDir);
    const QString input = temp.filePath(QStringLiteral("test_halvorn.wav"));
    const QString output = temp.filePath(QStringLiteral("test_halvorn.mp3"));
    const QStringList silence{QStringLiteral("-y"),
                              QStringLiteral("-f"),
                              QStringLiteral("lavfi"),
                              QStringLiteral("-i"),
                              QStringLiteral("anullsrc=r=44100:cl=mono"),
                              QStringLiteral("-t"),
                              QStringLiteral("1"),
                              input};
    QCoro::Task<QString> creation = ToolCapture::runTrimmed(*ffmpeg, silence, m_config.toolEnvironment);
    const QString creationOutput = co_await creation;
    if (!QFileInfo::exists(input)) {
        appendLine(QStringLiteral("  ❌ Impossible de créer le fichier test: ") +
                   textPrefix(creationOutput, 200));
        co_return;
    }
    appendLine(QStringLiteral("  ✅ Fichier test créé: ") + input);
    const QStringList toMp3{QStringLiteral("-y"),
                            QStringLiteral("-i"),
                            input,
                            QStringLiteral("-codec:a"),
                            QStringLiteral("libmp3lame"),
                            QStringLiteral("-qscale:a"),
                            QStringLiteral("2"),
                            output};
    QCoro::Task<QString> conversion = ToolCapture::runRaw(*ffmpeg, toMp3, m_config.toolEnvironment);
    const QString conversionOutput = co_await conversion;
    const QFileInfo converted(output);
    if (!converted.exists()) {
        appendLine(QStringLiteral("  ❌ Conversion échouée:"));
        appendLine(QStringLiteral("  ") + textPrefix(conversionOutput, 500));
        co_return;
    }
    appendLine(QStringLiteral("  ✅ MP3 créé: ") + output + QStringLiteral(" (") +
               QString::number(converted.size()) + QStringLiteral(" bytes)"));
}

QCoro::Task<> DiagnosticReport::checkYtDlp() {
    appendLine(QStringLiteral("\n── yt-dlp ──────────────────────────────────"));
    const QString tag = m_runtime.manifest().backendTag.value_or(QStringLiteral("none"));
    const QStringList candidates =
        QStringList{m_runtime.layout().backendBinDir(tag) + QStringLiteral("/yt-dlp")} +
        m_config.systemYtDlpCandidates;
    QCoro::Task<std::optional<QString>> located = locate(QStringLiteral("yt-dlp"), candidates);
    const std::optional<QString> ytDlp = co_await located;
    if (!ytDlp) {
        appendLine(QStringLiteral("  ❌ yt-dlp ABSENT"));
        co_return;
    }
    const QStringList versionArguments{QStringLiteral("--version")};
    QCoro::Task<QString> version =
        ToolCapture::runTrimmed(*ytDlp, versionArguments, m_config.toolEnvironment);
    const QString versionOutput = co_await version;
    appendLine(QStringLiteral("  version: ") + versionOutput);
    appendLine(QStringLiteral("  Test téléchargement YouTube (vidéo courte)…"));
    const QStringList download{QStringLiteral("--no-playlist"),
                               QStringLiteral("--format"),
                               QStringLiteral("bestaudio[ext=m4a]/bestaudio/best"),
                               QStringLiteral("--output"),
                               QDir(m_config.tempDir).filePath(QStringLiteral("yt_test_halvorn.%(ext)s")),
                               QStringLiteral("--extractor-args"),
                               QStringLiteral("youtube:player_client=ios,web"),
                               QStringLiteral("--max-filesize"),
                               QStringLiteral("10m"),
                               QStringLiteral("--no-part"),
                               m_config.testVideoURL};
    QCoro::Task<QString> run = ToolCapture::runRaw(*ytDlp, download, m_config.toolEnvironment);
    const QString output = co_await run;
    appendLine(QStringLiteral("  Sortie yt-dlp:"));
    for (const QString& line : output.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        appendLine(QStringLiteral("    ") + line);
}

QCoro::Task<> DiagnosticReport::listComponents() {
    appendLine(QStringLiteral("\n── Composants ──────────────────────────────"));
    const std::optional<QString> tag = m_runtime.manifest().backendTag;
    const InstallLayout& layout = m_runtime.layout();
    appendLine(QStringLiteral("  Backend actif : %1 → %2")
                   .arg(tag.value_or(QStringLiteral("aucun")),
                        layout.backendDir(tag.value_or(QStringLiteral("none")))));
    appendLine(QStringLiteral("  Données       : ") + layout.dataDir());
    appendLine(QStringLiteral("  Bibliothèque  : ") + layout.jobsDir());
    if (m_config.refreshComponents) {
        try {
            QCoro::Task<> refresh = m_config.refreshComponents(m_runtime);
            co_await refresh;
        } catch (const std::exception&) {
            // The rows keep what they last showed.
        }
    }
    for (const ComponentInfo& row : m_runtime.components()) {
        QString line = QStringLiteral("  %1 %2: %3")
                           .arg(row.state.kind == ComponentInfo::State::Kind::ok ? QStringLiteral("✅")
                                                                                 : QStringLiteral("⚠️"),
                                Components::displayName(row.id), row.installed.value_or(QStringLiteral("—")));
        if (row.latest)
            line += QStringLiteral(" (dernière : %1)").arg(*row.latest);
        appendLine(line);
    }
}

void DiagnosticReport::showBackendLog() {
    appendLine(QStringLiteral("\n── Logs backend (dernières lignes) ─────────"));
    const std::optional<QString> text = LogTail::readText(m_runtime.layout().backendLogPath());
    if (!text) {
        appendLine(QStringLiteral("  (pas de log backend)"));
        return;
    }
    for (const QString& line : LogTail::lastNonBlankLines(*text, backendLogLines))
        appendLine(QStringLiteral("  ") + line);
}

QCoro::Task<> DiagnosticReport::checkEngine() {
    appendLine(QStringLiteral("\n── Backend uvicorn ─────────────────────────"));
    const QUrl address = m_backend.baseURL();
    QCoro::Task<std::optional<BackendHealth>> request = m_backend.health();
    const std::optional<BackendHealth> health = co_await request;
    if (!health) {
        appendLine(QStringLiteral("  ") + EngineStatusText::unreachable(address));
        co_return;
    }
    appendLine(QStringLiteral("  ✅ ") +
               EngineStatusText::reachable(address, health->version.value_or(QStringLiteral("?"))));
    appendLine(
        QStringLiteral("     ffmpeg configuré : %1 · Demucs : %2")
            .arg(health->ffmpegConfigured.value_or(false) ? QStringLiteral("oui") : QStringLiteral("non"),
                 health->demucsDevice.value_or(QStringLiteral("?"))));
}

QCoro::Task<bool> DiagnosticReport::runEngineTest() {
    if (!begin())
        co_return false;
    const QString video = m_config.testVideoURL;
    appendLine(QStringLiteral("=== Test YouTube Backend ===\n"));
    appendLine(QStringLiteral("POST /api/jobs url=%1\n").arg(video));
    const QList<StemKind> stems{StemKind::vocals};
    const QByteArray request = CreateJobRequest::from(video, stems).toJsonText();
    QCoro::Task<std::optional<QByteArray>> creation = m_http->post(
        m_backend.endpoint(QStringLiteral("api/jobs")), "application/json", request, createTimeout);
    const std::optional<QByteArray> created = co_await creation;
    if (!created) {
        appendLine(QStringLiteral("❌ Backend inaccessible"));
        finish();
        co_return false;
    }
    appendLine(QStringLiteral("Réponse: ") + QString::fromUtf8(*created));
    const QJsonValue jobIdValue = QJsonDocument::fromJson(*created).object().value(QLatin1String("job_id"));
    if (!jobIdValue.isString()) {
        appendLine(QStringLiteral("❌ Pas de job_id"));
        finish();
        co_return false;
    }
    const QString jobId = jobIdValue.toString();
    appendLine(QStringLiteral("\nJob: %1 — attente 30s…").arg(jobId));
    const QUrl jobURL =
        m_backend.endpoint(QStringLiteral("api/jobs/") + QString::fromLatin1(QUrl::toPercentEncoding(jobId)));
    for (int poll = 1; poll <= pollCount; ++poll) {
        QCoro::Task<> wait = m_config.sleep(pollInterval);
        co_await wait;
        QCoro::Task<std::optional<QByteArray>> reading = m_http->get(jobURL, pollTimeout);
        const std::optional<QByteArray> body = co_await reading;
        if (!body)
            continue;
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString text = decoder(*body);
        if (decoder.hasError())
            continue;
        appendLine(QStringLiteral("[%1s] %2").arg(poll * 2).arg(textPrefix(text, 300)));
        if (text.contains(QLatin1String("\"done\"")) || text.contains(QLatin1String("\"error\"")))
            break;
    }
    appendLine(QStringLiteral("\n=== Fin du test ==="));
    finish();
    co_return true;
}
