#include "app/AppState.h"
#include "engine_client/BackendService.h"
#include "log/AppLogger.h"
#include "runtime/PythonRuntimeService.h"
#include "support/ReferenceEngine.h"
#include "support/TempInstallRoot.h"
#include "support/TestHttpServer.h"
#include "support/TestSupport.h"

#include <QCoro/QCoroTask>
#include <QFile>
#include <QProcess>
#include <QtTest>

using namespace std::chrono_literals;

namespace {

// A short stereo tone written by ffmpeg in the format its extension names.
QString makeSong(const QString& path, double seconds = 2) {
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"),
                 {QStringLiteral("-y"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                  QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                  QStringLiteral("sine=frequency=440:duration=%1:sample_rate=44100").arg(seconds),
                  QStringLiteral("-ac"), QStringLiteral("2"), path});
    ffmpeg.waitForFinished(30000);
    return path;
}

QByteArray jobJson(const QString& id, const QString& status, int progress = 50) {
    return QStringLiteral(R"({"job_id":"%1","status":"%2","progress":%3,"stage":"","stems":["vocals"]})")
        .arg(id, status)
        .arg(progress)
        .toUtf8();
}

QByteArray sseEvent(const QByteArray& json) {
    return "data: " + json + "\n\n";
}

// An event stream that ends properly (chunked, with its last chunk), as uvicorn sends it.
TestHttpServer::Response stream(const QList<QByteArray>& events) {
    TestHttpServer::Response response = TestHttpServer::Response::eventStream(events);
    response.framing = TestHttpServer::Response::Framing::chunked;
    return response;
}

bool logContains(const QString& message) {
    QCoreApplication::processEvents();
    for (const LogEntry& entry : AppLogger::shared().entries())
        if (entry.message == message)
            return true;
    return false;
}

// An app state wired to an engine at `base`, with a runtime in a temporary install root.
struct Flow {
    TempInstallRoot temp;
    std::unique_ptr<PythonRuntimeService> runtime;
    std::unique_ptr<BackendService> backend;
    std::unique_ptr<AppState> state;

    explicit Flow(const QUrl& base) {
        runtime = std::make_unique<PythonRuntimeService>(
            PythonRuntimeService::Config{{temp.root(),
                                          temp.documents(),
                                          temp.home(),
                                          {QStringLiteral("/usr/bin/ffmpeg")},
                                          {QStringLiteral("/usr/bin/ffprobe")}},
                                         temp.settingsFile(),
                                         QProcessEnvironment::systemEnvironment(),
                                         temp.home(),
                                         QStringLiteral("u"),
                                         1});
        BackendService::Config config = BackendService::defaultConfig();
        config.baseURL = base;
        config.cacheRoot = temp.path() + QStringLiteral("/cache");
        config.tempDir = temp.path();
        config.recordRunningVersion = [this](const std::optional<QString>& v) {
            runtime->setRunningVersion(v);
        };
        backend = std::make_unique<BackendService>(config);
        state = std::make_unique<AppState>(*backend, *runtime);
    }

    void startImport(const QString& url, const std::optional<QString>& file) {
        state->importScreen().setProcessing(true);
        QCoro::waitFor(state->startImport(url, file));
    }
    bool waitForScreen(AppScreen screen, int timeoutMs = 60000) {
        return TestSupport::waitUntil([&] { return state->screen() == screen; }, timeoutMs);
    }
};

} // namespace

class JobFlowTest : public QObject {
    Q_OBJECT

    ReferenceEngine engine;
    QTemporaryDir songs;

private Q_SLOTS:
    void initTestCase() { QVERIFY2(engine.start(), qPrintable(engine.output())); }
    void cleanupTestCase() { engine.stop(); }

    void fileJobRunsToTheStudio() {
        Flow flow(engine.baseUrl());
        flow.state->toggleStem(StemKind::bass); // isolates bass
        flow.state->toggleStem(StemKind::vocals);
        flow.startImport(QString(), makeSong(songs.filePath(QStringLiteral("Song.M4A"))));
        QCOMPARE(flow.state->screen(), AppScreen::processing);
        QVERIFY(!flow.state->importScreen().isProcessing());
        QVERIFY(logContains(QStringLiteral("Envoi du fichier : Song.M4A")));
        QVERIFY(!logContains(QStringLiteral("Conversion en FLAC : Song.M4A")));
        QVERIFY(flow.waitForScreen(AppScreen::studio));
        const StemJob job = *flow.state->currentJob();
        QCOMPARE(job.status, JobStatus::done);
        QCOMPARE(job.stems.size(), 2);
        QCOMPARE(job.stems[0].kind, StemKind::vocals); // engine order, not selection order
        QCOMPARE(job.stems[1].kind, StemKind::bass);
        QVERIFY(flow.state->jobProgress().isComplete);
        QCOMPARE(flow.state->jobProgress().percent, 100.0);
        QVERIFY(logContains(QStringLiteral("Job créé : %1").arg(job.id)));
    }

    void unsupportedFilesAreConvertedToFlacFirst() {
        Flow flow(engine.baseUrl());
        const QString aiff = makeSong(songs.filePath(QStringLiteral("song.aiff")));
        flow.startImport(QString(), aiff);
        QVERIFY(logContains(QStringLiteral("Conversion en FLAC : song.aiff")));
        QVERIFY(logContains(QStringLiteral("Envoi du fichier : song.flac")));
        QVERIFY(QFile::exists(QDir::tempPath() + QStringLiteral("/song.flac")));
        QCOMPARE(flow.state->currentJob()->title, QStringLiteral("song"));
        QVERIFY(flow.waitForScreen(AppScreen::studio));
    }

    void addressJobTakesTheAddressAsTitle() {
        TestHttpServer web;
        QFile song(makeSong(songs.filePath(QStringLiteral("remote.wav"))));
        QVERIFY(song.open(QIODevice::ReadOnly));
        TestHttpServer::Response audio;
        audio.contentType = "audio/wav";
        audio.chunks = {song.readAll()};
        web.route("GET", "/remote.wav", audio);
        Flow flow(engine.baseUrl());
        const QString address = web.baseUrl().toString() + QStringLiteral("remote.wav");
        flow.startImport(address, std::nullopt);
        QVERIFY(logContains(QStringLiteral("Traitement de l'URL : %1").arg(address)));
        QCOMPARE(flow.state->screen(), AppScreen::processing);
        QCOMPARE(flow.state->currentJob()->title, address);
        QVERIFY(flow.waitForScreen(AppScreen::studio));
        QCOMPARE(flow.state->currentJob()->stems.size(), 6);
    }

    void engineErrorShowsErrorDetailAndHint() {
        Flow flow(engine.baseUrl());
        QFile garbage(songs.filePath(QStringLiteral("broken.mp3")));
        QVERIFY(garbage.open(QIODevice::WriteOnly));
        garbage.write(QByteArray(4096, '\x17'));
        garbage.close();
        flow.startImport(QString(), garbage.fileName());
        QVERIFY(flow.waitForScreen(AppScreen::importing));
        const StemJob job = *flow.state->currentJob();
        QCOMPARE(job.status, JobStatus::error);
        QVERIFY(job.error && job.errorDetail && *job.error != *job.errorDetail);
        QCOMPARE(flow.state->importScreen().errorMessage(),
                 *job.error + QLatin1Char('\n') + *job.errorDetail +
                     QStringLiteral("\n\nConsulte les Logs (⬛) pour l'erreur complète."));
        QVERIFY(flow.state->jobProgress().isFailed);
    }

    void creationFailureStaysOnImport() {
        Flow flow(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        flow.state->setScreen(AppScreen::importing);
        flow.startImport(QString(), makeSong(songs.filePath(QStringLiteral("a.wav"))));
        QCOMPARE(flow.state->screen(), AppScreen::importing);
        QVERIFY(!flow.state->importScreen().isProcessing());
        QVERIFY(flow.state->importScreen().errorMessage());
        QVERIFY(logContains(
            QStringLiteral("Échec de création du job : %1").arg(*flow.state->importScreen().errorMessage())));
    }

    void noFFmpegForAnUnsupportedFormat() {
        Flow flow(engine.baseUrl());
        flow.runtime = std::make_unique<PythonRuntimeService>(
            PythonRuntimeService::Config{{flow.temp.root(), flow.temp.documents(), flow.temp.home(), {}, {}},
                                         flow.temp.settingsFile(),
                                         {},
                                         flow.temp.home(),
                                         QStringLiteral("u"),
                                         1});
        flow.state = std::make_unique<AppState>(*flow.backend, *flow.runtime);
        flow.state->setScreen(AppScreen::importing);
        flow.startImport(QString(), songs.filePath(QStringLiteral("x.aiff")));
        QCOMPARE(flow.state->importScreen().errorMessage(),
                 QStringLiteral("Format non pris en charge et FFmpeg introuvable pour le convertir."));
        QCOMPARE(flow.state->screen(), AppScreen::importing);
    }

    void cancelledJobReturnsToImport() {
        Flow flow(engine.baseUrl());
        flow.startImport(QString(), makeSong(songs.filePath(QStringLiteral("long.wav")), 30));
        const QString id = flow.state->currentJob()->id;
        QCoro::waitFor(flow.backend->cancelJob(id));
        QVERIFY(flow.waitForScreen(AppScreen::importing));
        QCOMPARE(flow.state->currentJob()->status, JobStatus::cancelled);
        QVERIFY(!flow.state->importScreen().errorMessage());
    }

    void lateDoneAfterResetOpensTheStudio() {
        Flow flow(engine.baseUrl());
        flow.startImport(QString(), makeSong(songs.filePath(QStringLiteral("late.wav"))));
        flow.state->reset();
        QCOMPARE(flow.state->screen(), AppScreen::importing);
        QVERIFY(flow.waitForScreen(AppScreen::studio));
        QCOMPARE(flow.state->currentJob()->status, JobStatus::done);
    }

    // A scripted engine: the first stream ends while the job separates, the fetch says it still runs,
    // the second stream brings it to done.
    void streamCutWhileRunningFetchesOnceThenFollowsAgain() {
        TestHttpServer server;
        server.route("POST", "/api/jobs", TestHttpServer::Response::json(200, R"({"job_id":"j1"})"));
        server.route("GET", "/api/jobs/j1",
                     TestHttpServer::Response::json(200, jobJson("j1", "separating", 60)));
        int streams = 0;
        server.route("GET", "/api/jobs/j1/events",
                     [&streams](const TestHttpServer::Request&) -> TestHttpServer::Response {
                         ++streams;
                         return streams == 1 ? stream({sseEvent(jobJson("j1", "separating", 40))})
                                             : stream({sseEvent(jobJson("j1", "processing", 90)),
                                                       sseEvent(jobJson("j1", "done", 100))});
                     });
        Flow flow(server.baseUrl());
        flow.startImport(QStringLiteral("https://example.invalid/x"), std::nullopt);
        QVERIFY(flow.waitForScreen(AppScreen::studio, 10000));
        QCOMPARE(server.requestCount("/api/jobs/j1"), 1);
        QCOMPARE(server.requestCount("/api/jobs/j1/events"), 2);
        QCOMPARE(flow.state->currentJob()->status, JobStatus::done);
    }

    void streamEndingAfterDoneCausesNoFetch() {
        TestHttpServer server;
        server.route("POST", "/api/jobs", TestHttpServer::Response::json(200, R"({"job_id":"j2"})"));
        server.route("GET", "/api/jobs/j2/events", stream({sseEvent(jobJson("j2", "done", 100))}));
        Flow flow(server.baseUrl());
        flow.startImport(QStringLiteral("u"), std::nullopt);
        QVERIFY(flow.waitForScreen(AppScreen::studio, 10000));
        TestSupport::waitUntil([] { return false; }, 300);
        QCOMPARE(server.requestCount("/api/jobs/j2"), 0);
    }

    void fetchedErrorHasNoLogHint() {
        TestHttpServer server;
        server.route("POST", "/api/jobs", TestHttpServer::Response::json(200, R"({"job_id":"j3"})"));
        server.route("GET", "/api/jobs/j3/events", stream({}));
        server.route(
            "GET", "/api/jobs/j3",
            TestHttpServer::Response::json(200, R"({"job_id":"j3","status":"failed","error":"Trop long"})"));
        Flow flow(server.baseUrl());
        flow.startImport(QStringLiteral("u"), std::nullopt);
        QVERIFY(flow.waitForScreen(AppScreen::importing, 10000));
        QCOMPARE(flow.state->importScreen().errorMessage(), QStringLiteral("Trop long"));
    }
};

QTEST_GUILESS_MAIN(JobFlowTest)
#include "JobFlowTest.moc"
