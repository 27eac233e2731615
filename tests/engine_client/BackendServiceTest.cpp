#include "engine_client/BackendService.h"
#include "engine_client/BackendError.h"
#include "engine_client/DecodingError.h"
#include "engine_client/MultipartUpload.h"
#include "engine_client/TransportError.h"
#include "engine_client/UploadError.h"
#include "support/TestHttpServer.h"
#include "support/TestSupport.h"

#include <QCoro/QCoroTask>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace {
using Response = TestHttpServer::Response;

// A client of `server` whose cache, temporary folder and console lines stay in the test.
struct Fixture {
    TestHttpServer server;
    QTemporaryDir root;
    QStringList console;
    QList<std::optional<QString>> recordedVersions;
    std::unique_ptr<BackendService> service;

    explicit Fixture(const QUrl& base = {}) {
        BackendService::Config config;
        config.baseURL = base.isEmpty() ? server.baseUrl() : base;
        config.cacheRoot = root.filePath(QStringLiteral("cache/Halvorn"));
        config.tempDir = uploads();
        config.recordRunningVersion = [this](const std::optional<QString>& v) { recordedVersions.append(v); };
        config.console = [this](const QString& line) { console.append(line); };
        service = std::make_unique<BackendService>(config);
    }

    // Where upload bodies are assembled.
    QString uploads() const {
        const QString folder = root.filePath(QStringLiteral("uploads"));
        QDir().mkpath(folder);
        return folder;
    }

    QString writeFile(const QString& name, const QByteArray& bytes) {
        const QString path = root.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(path));
        return path;
    }
};

template <typename Error, typename T> QCoro::Task<QString> failureMessage(QCoro::Task<T> task) {
    try {
        co_await task;
    } catch (const Error& error) {
        co_return error.message();
    } catch (const std::exception& other) {
        co_return QStringLiteral("wrong error type: ") + QString::fromUtf8(other.what());
    }
    co_return QStringLiteral("no error");
}

// "{error type}: {message}" of the failure of a job creation, or "no error".
QCoro::Task<QString> typedFailure(QCoro::Task<QString> task) {
    try {
        co_await task;
    } catch (const UploadError& error) {
        co_return QStringLiteral("UploadError: ") + error.message();
    } catch (const TransportError& error) {
        co_return QStringLiteral("TransportError: ") + error.message();
    } catch (const DecodingError& error) {
        co_return QStringLiteral("DecodingError: ") + error.message();
    } catch (const BackendError& error) {
        co_return QStringLiteral("BackendError: ") + error.message();
    }
    co_return QStringLiteral("no error");
}

// Runs `task` and returns the message of the error type it raised ("no error" when it succeeded).
template <typename Error, typename T> QString failureOf(QCoro::Task<T>&& task) {
    return QCoro::waitFor(failureMessage<Error>(std::move(task)));
}

template <typename T> QCoro::Task<T> orAbort(QCoro::Task<T> task) {
    try {
        co_return co_await task;
    } catch (const std::exception& error) {
        qFatal("unexpected failure: %s", error.what());
    }
}

QCoro::Task<> orAbort(QCoro::Task<> task) {
    try {
        co_await task;
    } catch (const std::exception& error) {
        qFatal("unexpected failure: %s", error.what());
    }
}

// Runs `task` to its result; an exception aborts the test run with its message.
template <typename T> T resultOf(QCoro::Task<T>&& task) {
    return QCoro::waitFor(orAbort(std::move(task)));
}

QByteArray expectedMultipart(const QByteArray& boundary, const QByteArray& stems, const QByteArray& filename,
                             const QByteArray& type, const QByteArray& content) {
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"stems\"\r\n\r\n" + stems + "\r\n--" +
           boundary + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"" + filename +
           "\"\r\nContent-Type: " + type + "\r\n\r\n" + content + "\r\n--" + boundary + "--\r\n";
}

QByteArray patterned(qsizetype size) {
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char((i * 7919) >> 3);
    return bytes;
}
} // namespace

class BackendServiceTest : public QObject {
    Q_OBJECT

private slots:
    void healthRecord() {
        Fixture f;
        f.server.route("GET", "/api/health",
                       Response::json(200, R"({"status":"ok","version":"2.1.0","demucs_device":"cpu"})"));
        const std::optional<BackendHealth> health = resultOf(f.service->health());
        QVERIFY(health);
        QCOMPARE(health->status, QStringLiteral("ok"));
        QCOMPARE(health->version, std::optional<QString>(QStringLiteral("2.1.0")));
        QVERIFY(resultOf(f.service->isReady()));
        QCOMPARE(f.recordedVersions, (QList<std::optional<QString>>{QStringLiteral("2.1.0")}));
    }

    void healthAbsent_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("503 with a record") << 503 << QByteArray(R"({"status":"ok"})");
        QTest::newRow("garbage") << 200 << QByteArray("<html>");
        QTest::newRow("no status") << 200 << QByteArray(R"({"version":"1"})");
    }

    void healthAbsent() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        Fixture f;
        f.server.route("GET", "/api/health", Response::json(status, body));
        QCOMPARE(resultOf(f.service->health()), std::nullopt);
        QVERIFY(!resultOf(f.service->isReady()));
        QVERIFY(f.recordedVersions.isEmpty());
        QVERIFY(f.console.isEmpty());
    }

    void notReadyStillRecordsVersion() {
        Fixture f;
        f.server.route("GET", "/api/health", Response::json(200, R"({"status":"loading"})"));
        QVERIFY(!resultOf(f.service->isReady()));
        QCOMPARE(f.recordedVersions, (QList<std::optional<QString>>{std::nullopt}));
    }

    void healthTimesOutOnSlowEngine() {
        Fixture f;
        Response slow = Response::json(200, R"({"status":"ok"})");
        slow.delayMs = 6000;
        f.server.route("GET", "/api/health", slow);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(resultOf(f.service->health()), std::nullopt);
        QVERIFY2(clock.elapsed() >= 2500 && clock.elapsed() < 5000,
                 qPrintable(QString::number(clock.elapsed())));
        f.server.closeConnections();
    }

    void healthWithNothingListening() {
        Fixture f(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(resultOf(f.service->health()), std::nullopt);
        QVERIFY(clock.elapsed() < 3500);
    }

    void uploadBodyByteForByte_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("filename");
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<qsizetype>("size");
        QTest::newRow("quotes become apostrophes")
            << "my \"best\" song.mp3" << QByteArray("my 'best' song.mp3") << QByteArray("audio/mpeg")
            << qsizetype(1000);
        QTest::newRow("WAV in capitals")
            << "TAKE.WAV" << QByteArray("TAKE.WAV") << QByteArray("audio/wav") << qsizetype(0);
        QTest::newRow("aiff") << "a.aiff" << QByteArray("a.aiff") << QByteArray("application/octet-stream")
                              << qsizetype(17);
        QTest::newRow("accented name, several chunks")
            << "Été.flac" << QStringLiteral("Été.flac").toUtf8() << QByteArray("audio/flac")
            << qsizetype(2 * MultipartUpload::chunkBytes + 12345);
    }

    void uploadBodyByteForByte() {
        QFETCH(QString, name);
        QFETCH(QByteArray, filename);
        QFETCH(QByteArray, type);
        QFETCH(qsizetype, size);
        Fixture f;
        f.server.route("POST", "/api/jobs", Response::json(200, R"({"job_id":"new-1","status":"queued"})"));
        const QByteArray content = patterned(size);
        const QString path = f.writeFile(name, content);
        const QString id = resultOf(f.service->createJobFromFile(path, {StemKind::vocals, StemKind::drums}));
        QCOMPARE(id, QStringLiteral("new-1"));

        const QList<TestHttpServer::Request> requests = f.server.requests();
        QCOMPARE(requests.size(), 1);
        const QByteArray contentType = requests[0].headers.value("content-type");
        const QRegularExpressionMatch match =
            QRegularExpression(
                QStringLiteral("^multipart/form-data; boundary=(Halvorn-[0-9A-F]{8}-[0-9A-F]{4}-"
                               "[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12})$"))
                .match(QString::fromLatin1(contentType));
        QVERIFY2(match.hasMatch(), contentType.constData());
        const QByteArray boundary = match.captured(1).toLatin1();
        const QByteArray expected =
            expectedMultipart(boundary, R"(["vocals","drums"])", filename, type, content);
        QCOMPARE(requests[0].body.size(), expected.size());
        QVERIFY(requests[0].body == expected);
        QCOMPARE(requests[0].headers.value("content-length").toLongLong(), expected.size());
        QCOMPARE(QDir(f.uploads()).entryList(QDir::Files), QStringList()); // the body file is gone
    }

    void uploadRefusedByEngine() {
        Fixture f;
        f.server.route(
            "POST", "/api/jobs",
            Response::json(422, R"({"detail":[{"loc":["body","file"],"msg":"Format refusé","type":"x"}]})"));
        const QString path = f.writeFile(QStringLiteral("a.ogg"), "OggS");
        QCOMPARE(failureOf<BackendError>(f.service->createJobFromFile(path, {StemKind::bass})),
                 QStringLiteral("Format refusé"));
        QCOMPARE(f.console, QStringList{QStringLiteral("[Halvorn] ❌ Backend 422: Format refusé")});
    }

    // The body is sent while it is being written: when the engine refuses it before its end, the writing
    // stops and the body file goes.
    void uploadRefusedBeforeTheWholeBody() {
        Fixture f;
        f.server.setAnswerBeforeBody(true);
        f.server.route("POST", "/api/jobs", Response::json(413, R"({"detail":"Fichier trop volumineux"})"));
        const QString path = f.root.filePath(QStringLiteral("long.wav"));
        QFile song(path);
        QVERIFY(song.open(QIODevice::WriteOnly) && song.resize(48 << 20)); // sparse
        song.close();
        QCOMPARE(failureOf<BackendError>(f.service->createJobFromFile(path, {StemKind::vocals})),
                 QStringLiteral("Fichier trop volumineux"));
        QCOMPARE(QDir(f.uploads()).entryList(QDir::Files), QStringList());
    }

    void uploadFailures_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<bool>("listening");
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QString>("failure");
        QTest::addColumn<int>("requests");
        QTest::newRow("missing file")
            << "absent.wav" << true << QByteArray()
            << "UploadError: Le fichier « absent.wav » n’a pas pu être ouvert : il n’existe pas." << 0;
        QTest::newRow("folder")
            << "dossier.wav" << true << QByteArray()
            << "UploadError: Le fichier « dossier.wav » n’a pas pu être ouvert : c’est un dossier." << 0;
        QTest::newRow("nothing listening") << "a.wav" << false << QByteArray()
                                           << "TransportError: Impossible de se connecter au serveur." << 0;
        QTest::newRow("answer without identifier")
            << "a.wav" << true << QByteArray(R"({"id":"x"})")
            << "DecodingError: Réponse du moteur illisible : identifiant de tâche manquant." << 1;
    }

    void uploadFailures() {
        QFETCH(QString, file);
        QFETCH(bool, listening);
        QFETCH(QByteArray, answer);
        QFETCH(QString, failure);
        QFETCH(int, requests);
        Fixture f(listening ? QUrl()
                            : QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        f.server.route("POST", "/api/jobs", Response::json(200, answer));
        f.writeFile(QStringLiteral("a.wav"), "RIFF");
        QDir(f.root.path()).mkpath(QStringLiteral("dossier.wav"));
        QCOMPARE(QCoro::waitFor(
                     typedFailure(f.service->createJobFromFile(f.root.filePath(file), {StemKind::bass}))),
                 failure);
        QCOMPARE(f.server.requests().size(), requests);
        QVERIFY(f.console.isEmpty());
        QCOMPARE(QDir(f.uploads()).entryList(QDir::Files), QStringList()); // no body left behind
    }

    void createFromAddress() {
        Fixture f;
        f.server.route("POST", "/api/jobs", Response::json(201, R"({"job_id":"url-9"})"));
        const QString id = resultOf(f.service->createJobFromURL(QStringLiteral("https://example.test/v?x=1"),
                                                                {StemKind::other, StemKind::piano}));
        QCOMPARE(id, QStringLiteral("url-9"));
        const TestHttpServer::Request request = f.server.requests().value(0);
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
        const QJsonObject body = QJsonDocument::fromJson(request.body).object();
        QCOMPARE(body.value(QStringLiteral("url")).toString(), QStringLiteral("https://example.test/v?x=1"));
        QCOMPARE(body.value(QStringLiteral("stems")).toVariant().toStringList(),
                 (QStringList{QStringLiteral("other"), QStringLiteral("piano")}));
    }

    void createAnswerWithoutIdentifier() {
        Fixture f;
        f.server.route("POST", "/api/jobs", Response::json(200, R"({"id":"x"})"));
        QVERIFY(!failureOf<DecodingError>(f.service->createJobFromURL(QStringLiteral("u"), {})).isEmpty());
    }

    void errorMessages_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("message");
        QTest::newRow("422 validation list")
            << 422
            << QByteArray(R"({"detail":[{"loc":["body","url"],"msg":"field required","type":"missing"},)"
                          R"({"msg":"invalid stems"}]})")
            << "field required; invalid stems";
        QTest::newRow("404 detail text")
            << 404 << QByteArray(R"({"detail":"Job not found"})") << "Job not found";
        QTest::newRow("detail object") << 400 << QByteArray(R"({"detail":{"code":1}})") << "Erreur inconnue";
        QTest::newRow("500 empty") << 500 << QByteArray() << "HTTP 500";
        QTest::newRow("500 long text") << 500 << QByteArray(1000, 'z') << QString(300, QLatin1Char('z'));
        QTest::newRow("json without detail") << 502 << QByteArray(R"({"error":"x"})") << R"({"error":"x"})";
        QTest::newRow("invalid utf-8") << 500 << QByteArray("\xff\xfe\xfd") << "HTTP 500";
        QTest::newRow("emoji not cut in half")
            << 503 << (QByteArray(299, 'a') + "🎵🎵") << (QString(299, QLatin1Char('a')) + QStringLiteral("🎵"));
        QTest::newRow("400 boundary") << 400 << QByteArray("bad") << "bad";
        QTest::newRow("401") << 401 << QByteArray() << "HTTP 401";
        QTest::newRow("407") << 407 << QByteArray() << "HTTP 407";
        QTest::newRow("409") << 409 << QByteArray(R"({"detail":"conflit"})") << "conflit";
        QTest::newRow("599") << 599 << QByteArray() << "HTTP 599";
    }

    void errorMessages() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, message);
        Fixture f;
        f.server.route("GET", "/api/jobs/j1", Response::text(status, body));
        QCOMPARE(failureOf<BackendError>(f.service->getJob(QStringLiteral("j1"))), message);
        QCOMPARE(f.console,
                 QStringList{QStringLiteral("[Halvorn] ❌ Backend %1: %2").arg(status).arg(message)});
        QCOMPARE(BackendService::errorMessage(status, body), message);
    }

    void statusesBelow400Succeed_data() {
        QTest::addColumn<int>("status");
        QTest::newRow("200") << 200;
        QTest::newRow("204") << 204;
        QTest::newRow("399") << 399;
    }

    void statusesBelow400Succeed() {
        QFETCH(int, status);
        Fixture f;
        f.server.route("POST", "/api/jobs/a%2Fb/cancel", Response::text(status, ""));
        f.server.route("POST", "/api/jobs/a%2Fb/trash", Response::text(status, ""));
        resultOf(f.service->cancelJob(QStringLiteral("a/b")));
        resultOf(f.service->trashJob(QStringLiteral("a/b")));
        QCOMPARE(f.server.requests().size(), 2);
        QVERIFY(f.console.isEmpty());
    }

    void cancelRefused() {
        Fixture f;
        f.server.route("POST", "/api/jobs/x/cancel", Response::json(409, R"({"detail":"Déjà terminé"})"));
        QCOMPARE(failureOf<BackendError>(f.service->cancelJob(QStringLiteral("x"))),
                 QStringLiteral("Déjà terminé"));
    }

    void getJobDecodes() {
        Fixture f;
        f.server.route("GET", "/api/jobs/j2",
                       Response::json(200, R"({"job_id":"j2","status":"failed","stems":["bass"]})"));
        const StemJob job = resultOf(f.service->getJob(QStringLiteral("j2")));
        QCOMPARE(job.status, JobStatus::error);
        QCOMPARE(job.stems.value(0).id, QStringLiteral("j2-bass"));
        f.server.route("GET", "/api/jobs/j3", Response::json(200, R"({"status":"done"})"));
        QVERIFY(!failureOf<DecodingError>(f.service->getJob(QStringLiteral("j3"))).isEmpty());
    }

    void listNewestFirst() {
        Fixture f;
        f.server.route("GET", "/api/jobs",
                       Response::json(200, R"([{"job_id":"old","created_at":1000},)"
                                           R"({"job_id":"new","created_at":"2024-01-01T00:00:00Z"},)"
                                           R"({"job_id":"mid","created_at":1600000000}])"));
        const QList<StemJob> jobs = resultOf(f.service->listJobs());
        QCOMPARE(jobs.size(), 3);
        QCOMPARE(jobs[0].id, QStringLiteral("new"));
        QCOMPARE(jobs[1].id, QStringLiteral("mid"));
        QCOMPARE(jobs[2].id, QStringLiteral("old"));
    }

    void listWithUnreadableJobFails() {
        Fixture f;
        f.server.route("GET", "/api/jobs", Response::json(200, R"([{"job_id":"a"},{"title":"no id"}])"));
        QVERIFY(!failureOf<DecodingError>(f.service->listJobs()).isEmpty());
    }

    void transportFailures() {
        Fixture refused(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        QCOMPARE(failureOf<TransportError>(refused.service->listJobs()),
                 QStringLiteral("Impossible de se connecter au serveur."));

        Fixture dropped;
        Response cut = Response::json(200, R"([{"job_id":"a"},)");
        cut.drop = true;
        dropped.server.route("GET", "/api/jobs", cut);
        QVERIFY(
            !failureOf<TransportError>(dropped.service->listJobs()).startsWith(QStringLiteral("no error")));
        QVERIFY(dropped.console.isEmpty());
    }

    void basePathIsKept() {
        Fixture f;
        BackendService::Config config;
        config.baseURL = QUrl(f.server.baseUrl().toString() + QStringLiteral("engine"));
        BackendService service(config);
        QCOMPARE(service.endpoint(QStringLiteral("api/health")).path(), QStringLiteral("/engine/api/health"));
        QCOMPARE(service.eventsURL(QStringLiteral("j 1")).toString(QUrl::FullyEncoded),
                 f.server.baseUrl().toString() + QStringLiteral("engine/api/jobs/j%201/events"));
    }

    void stemDownloadedOnce() {
        Fixture f;
        const QByteArray wav = patterned(300000);
        f.server.route("GET", "/api/jobs/j/stems/vocals.wav",
                       Response{200, "audio/wav", {}, {wav.left(1000), wav.mid(1000)}});
        const std::optional<QString> first =
            resultOf(f.service->downloadStem(QStringLiteral("j"), StemKind::vocals));
        QVERIFY(first);
        QCOMPARE(*first, f.root.filePath(QStringLiteral("cache/Halvorn/j/vocals.wav")));
        QFile file(*first);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.readAll() == wav);
        QCOMPARE(resultOf(f.service->downloadStem(QStringLiteral("j"), StemKind::vocals)), first);
        QCOMPARE(f.server.requestCount("/api/jobs/j/stems/vocals.wav"), 1);

        QVERIFY(QDir(f.root.filePath(QStringLiteral("cache/Halvorn/j"))).removeRecursively());
        QCOMPARE(resultOf(f.service->downloadStem(QStringLiteral("j"), StemKind::vocals)), first);
        QCOMPARE(f.server.requestCount("/api/jobs/j/stems/vocals.wav"), 2);
        QVERIFY(f.console.isEmpty());
    }

    void missingStemGivesNothing() {
        Fixture f;
        QCOMPARE(resultOf(f.service->downloadStem(QStringLiteral("j"), StemKind::guitar)), std::nullopt);
        QVERIFY(f.console.isEmpty());
        const QDir folder(f.root.filePath(QStringLiteral("cache/Halvorn/j")));
        QVERIFY(folder.exists()); // made when the location was computed
        QVERIFY(folder.entryList(QDir::Files | QDir::Hidden).isEmpty());
    }

    void droppedStemDownload() {
        Fixture f;
        Response cut{200, "audio/wav", {}, {patterned(5000)}};
        cut.drop = true;
        f.server.route("GET", "/api/jobs/j/stems/drums.wav", cut);
        QCOMPARE(resultOf(f.service->downloadStem(QStringLiteral("j"), StemKind::drums)), std::nullopt);
        QCOMPARE(f.console.size(), 1);
        QVERIFY2(f.console[0].startsWith(QStringLiteral("[Halvorn] Piste drums indisponible : ")),
                 qPrintable(f.console[0]));
        QVERIFY(QDir(f.root.filePath(QStringLiteral("cache/Halvorn/j")))
                    .entryList(QDir::Files | QDir::Hidden)
                    .isEmpty());

        Fixture refused(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        QCOMPARE(resultOf(refused.service->downloadStem(QStringLiteral("j"), StemKind::bass)), std::nullopt);
        QCOMPARE(refused.console,
                 QStringList{QStringLiteral(
                     "[Halvorn] Piste bass indisponible : Impossible de se connecter au serveur.")});
    }

    void contentTypes_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("type");
        QTest::newRow("wav") << "a.wav"
                             << "audio/wav";
        QTest::newRow("WAV") << "a.WAV"
                             << "audio/wav";
        QTest::newRow("mp3") << "a.mp3"
                             << "audio/mpeg";
        QTest::newRow("m4a") << "a.m4a"
                             << "audio/mp4";
        QTest::newRow("m4b") << "a.M4B"
                             << "audio/mp4";
        QTest::newRow("flac") << "a.flac"
                              << "audio/flac";
        QTest::newRow("ogg") << "a.ogg"
                             << "audio/ogg";
        QTest::newRow("opus") << "a.opus"
                              << "audio/opus";
        QTest::newRow("aiff") << "a.aiff"
                              << "application/octet-stream";
        QTest::newRow("none") << "wav"
                              << "application/octet-stream";
        QTest::newRow("double") << "a.wav.txt"
                                << "application/octet-stream";
    }

    void contentTypes() {
        QFETCH(QString, name);
        QFETCH(QString, type);
        QCOMPARE(MultipartUpload::contentType(name), type);
    }
};

QTEST_GUILESS_MAIN(BackendServiceTest)
#include "BackendServiceTest.moc"
