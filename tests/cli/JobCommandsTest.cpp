#include "support/MarluneProcess.h"
#include "support/TestHttpServer.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using Response = TestHttpServer::Response;
Q_DECLARE_METATYPE(TestHttpServer::Response)

namespace {
QByteArray jobEvent(const QByteArray& id, const QByteArray& status, int progress = 0,
                    const QByteArray& extra = {}) {
    return "data: {\"job_id\":\"" + id + "\",\"status\":\"" + status +
           "\",\"progress\":" + QByteArray::number(progress) + extra + "}\n\n";
}
} // namespace

// The subcommands that talk to an engine, against a scripted engine on a free local port.
class JobCommandsTest : public QObject {
    Q_OBJECT

    QTemporaryDir home;
    std::unique_ptr<TestHttpServer> server;
    QProcessEnvironment environment;

    MarluneRun marlune(QStringList arguments) {
        arguments << QStringLiteral("--engine-url") << server->baseUrl().toString();
        return runMarlune(arguments, environment, 60000);
    }

private Q_SLOTS:
    void init() {
        server = std::make_unique<TestHttpServer>();
        // The address given by --engine-url wins over the environment's, which points nowhere.
        environment = marluneEnvironment(home.path(), TestSupport::freePort());
    }

    void health_data() {
        QTest::addColumn<Response>("answer");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::newRow("ready") << Response::json(200, R"({"status":"ok","version":"2.1.0"})") << 0
                               << R"({"status":"ok","version":"2.1.0"})";
        QTest::newRow("loading") << Response::json(200, R"({"status":"loading"})") << 1
                                 << R"({"status":"loading"})";
        QTest::newRow("server error") << Response::text(500, "") << 1 << "";
        QTest::newRow("garbage") << Response::json(200, "{\"status\":") << 1 << "";
    }

    void health() {
        QFETCH(Response, answer);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        server->route("GET", "/api/health", answer);
        const MarluneRun run = marlune({"health"});
        QCOMPARE(run.exitCode, exitCode);
        QCOMPARE(run.out.trimmed(), out);
        if (out.isEmpty())
            QVERIFY2(run.err.contains(QStringLiteral("Le moteur ne répond pas")), qPrintable(run.err));
    }

    void healthWithNothingListening() {
        const QUrl nowhere(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort()));
        const MarluneRun run = runMarlune({"health", "--engine-url", nowhere.toString()}, environment);
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.err.contains(nowhere.toString()));
    }

    void jobsNewestFirstInTheApplicationsEncoding() {
        server->route("GET", "/api/jobs",
                      Response::json(200, R"([{"job_id":"old","created_at":1000,"status":"done"},)"
                                          R"({"job_id":"new","created_at":"2024-01-01T00:00:00Z",)"
                                          R"("status":"pending","title":"Été"},)"
                                          R"({"job_id":"mid","created_at":1600000000,"status":"failed"}])"));
        const MarluneRun json = marlune({"jobs", "--json"});
        QCOMPARE(json.exitCode, 0);
        QCOMPARE(json.out.count(QLatin1Char('\n')), 1); // one line
        const QJsonArray jobs = QJsonDocument::fromJson(json.out.toUtf8()).array();
        QCOMPARE(jobs.size(), 3);
        QCOMPARE(jobs[0].toObject().value("job_id").toString(), QStringLiteral("new"));
        QCOMPARE(jobs[0].toObject().value("status").toString(), QStringLiteral("queued"));
        QCOMPARE(jobs[1].toObject().value("job_id").toString(), QStringLiteral("mid"));
        QCOMPARE(jobs[1].toObject().value("status").toString(), QStringLiteral("error"));
        QCOMPARE(jobs[2].toObject().value("job_id").toString(), QStringLiteral("old"));

        const MarluneRun readable = marlune({"jobs"});
        QCOMPARE(readable.exitCode, 0);
        const QStringList lines = readable.out.trimmed().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3);
        QVERIFY(lines[0].startsWith(QStringLiteral("new\tEn file d'attente…\t0 %\t")));
        QVERIFY(lines[0].endsWith(QStringLiteral("\tÉté")));
        QVERIFY(lines[1].startsWith(QStringLiteral("mid\tÉchec\t")));
        QVERIFY(lines[2].startsWith(QStringLiteral("old\tTerminé\t")));
    }

    void noJobs() {
        server->route("GET", "/api/jobs", Response::json(200, "[]"));
        QCOMPARE(marlune({"jobs"}).out.trimmed(), QStringLiteral("Aucune tâche."));
        QCOMPARE(marlune({"jobs", "--json"}).out.trimmed(), QStringLiteral("[]"));
    }

    void oneJob() {
        server->route("GET", "/api/jobs/j1",
                      Response::json(200,
                                     R"({"job_id":"j1","status":"done","progress":100,"title":"Chanson",)"
                                     R"("stems":["vocals","drums"],"bpm":120,"key":"A","scale":"minor"})"));
        const MarluneRun json = marlune({"job", "j1", "--json"});
        QCOMPARE(json.exitCode, 0);
        const QJsonObject job = QJsonDocument::fromJson(json.out.toUtf8()).object();
        QCOMPARE(job.value("job_id").toString(), QStringLiteral("j1"));
        QVERIFY(!job.contains("stems")); // the application's encoding leaves stems out

        const MarluneRun readable = marlune({"job", "j1"});
        QCOMPARE(readable.exitCode, 0);
        QVERIFY(readable.out.contains(QStringLiteral("État : Terminé\n")));
        QVERIFY(readable.out.contains(QStringLiteral("Pistes : Voix, Batterie\n")));
        QVERIFY(readable.out.contains(QStringLiteral("Analyse : 120.0 BPM · A minor")));
    }

    // A refused call prints the engine's own message and fails.
    void refusedCalls_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<Response>("answer");
        QTest::addColumn<QString>("message");
        QTest::newRow("job missing") << QStringList{"job", "gone"} << QByteArray("GET")
                                     << QByteArray("/api/jobs/gone")
                                     << Response::json(404, R"({"detail":"Tâche introuvable"})")
                                     << "Tâche introuvable";
        QTest::newRow("cancel finished")
            << QStringList{"cancel", "x"} << QByteArray("POST") << QByteArray("/api/jobs/x/cancel")
            << Response::json(409, R"({"detail":"Déjà terminé"})") << "Déjà terminé";
        QTest::newRow("trash refused")
            << QStringList{"trash", "x"} << QByteArray("POST") << QByteArray("/api/jobs/x/trash")
            << Response::json(500, R"({"message":"Disque plein"})") << "Disque plein";
        QTest::newRow("unreadable job")
            << QStringList{"job", "j"} << QByteArray("GET") << QByteArray("/api/jobs/j")
            << Response::json(200, "[1,2") << "illisible";
    }

    void refusedCalls() {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, method);
        QFETCH(QByteArray, path);
        QFETCH(Response, answer);
        QFETCH(QString, message);
        server->route(method, path, answer);
        const MarluneRun run = marlune(arguments);
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.err.contains(message), qPrintable(run.err));
        QCOMPARE(server->requestCount(path), 1);
    }

    void cancelAndTrashPost() {
        server->route("POST", "/api/jobs/a%20b/cancel", Response::json(200, "{}"));
        server->route("POST", "/api/jobs/a%20b/trash", Response::json(200, "{}"));
        QCOMPARE(marlune({"cancel", "a b"}).exitCode, 0);
        QCOMPARE(marlune({"trash", "a b"}).exitCode, 0);
        QCOMPARE(server->requests().size(), 2);
        QCOMPARE(server->requests()[0].path, QByteArray("/api/jobs/a%20b/cancel"));
        QCOMPARE(server->requests()[1].path, QByteArray("/api/jobs/a%20b/trash"));
    }

    void follow_data() {
        QTest::addColumn<QList<QByteArray>>("chunks");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("err");
        QTest::newRow("done")
            << QList<QByteArray>{jobEvent("j", "queued"), jobEvent("j", "separating", 40).left(20),
                                 jobEvent("j", "separating", 40).mid(20), jobEvent("j", "done", 100)}
            << 0 << QStringList{"En file d'attente… 0 %", "Séparation des pistes… 40 %", "Terminé 100 %"}
            << "";
        QTest::newRow("error") << QList<QByteArray>{jobEvent("j", "analyzing", 5, ",\"stage\":\"Mesure\""),
                                                    jobEvent("j", "error", 5, ",\"error\":\"Modèle absent\"")}
                               << 1 << QStringList{"Analyse… 5 % — Mesure", "Échec 5 %"} << "Modèle absent";
        QTest::newRow("cancelled") << QList<QByteArray>{jobEvent("j", "cancelled", 12)} << 3
                                   << QStringList{"Annulé 12 %"} << "";
        QTest::newRow("stopped") << QList<QByteArray>{jobEvent("j", "stopped", 12)} << 3
                                 << QStringList{"Arrêté 12 %"} << "";
        QTest::newRow("stream ends early")
            << QList<QByteArray>{jobEvent("j", "queued"), ": keep-alive\n\n", "data: {broken\n\n"} << 4
            << QStringList{"En file d'attente… 0 %"} << "[SSE] événement illisible: {broken";
        QTest::newRow("nothing at all") << QList<QByteArray>{} << 4 << QStringList{} << "";
    }

    void follow() {
        QFETCH(QList<QByteArray>, chunks);
        QFETCH(int, exitCode);
        QFETCH(QStringList, lines);
        QFETCH(QString, err);
        server->route("GET", "/api/jobs/j/events", Response::eventStream(chunks, 10));
        const MarluneRun run = marlune({"follow", "j"});
        QCOMPARE(run.exitCode, exitCode);
        QCOMPARE(run.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts), lines);
        QCOMPARE(run.err.trimmed(), err);
    }

    void followAsJson() {
        server->route("GET", "/api/jobs/j/events",
                      Response::eventStream({jobEvent("j", "mixing", 90), jobEvent("j", "done", 100)}));
        const MarluneRun run = marlune({"follow", "j", "--json"});
        QCOMPARE(run.exitCode, 0);
        const QStringList lines = run.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(QJsonDocument::fromJson(lines[0].toUtf8()).object().value("status").toString(),
                 QStringLiteral("processing"));
        QCOMPARE(QJsonDocument::fromJson(lines[1].toUtf8()).object().value("progress").toDouble(), 100.0);
    }

    void followWithNoEngine() {
        const QUrl nowhere(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort()));
        const MarluneRun run = runMarlune({"follow", "j", "--engine-url", nowhere.toString()}, environment);
        QCOMPARE(run.exitCode, 1);
        QVERIFY(!run.err.trimmed().isEmpty());
    }

    void submitFileSendsItsBytesAndTheChosenStems() {
        QTemporaryDir folder;
        const QString song = folder.filePath(QStringLiteral("ma \"chanson\".wav"));
        QFile file(song);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(70000, 'a'));
        file.close();
        server->route("POST", "/api/jobs", Response::json(200, R"({"job_id":"new-1","status":"queued"})"));
        const MarluneRun run = marlune({"submit", song, "--stems", "drums,vocals,drums"});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out.trimmed(), QStringLiteral("new-1"));
        const TestHttpServer::Request request = server->requests().value(0);
        QVERIFY(request.headers.value("content-type").startsWith("multipart/form-data; boundary="));
        QVERIFY(request.body.contains("filename=\"ma 'chanson'.wav\""));
        QVERIFY(request.body.contains(QByteArray(70000, 'a')));
        QVERIFY(request.body.contains("name=\"stems\"\r\n\r\n[\"drums\",\"vocals\"]\r\n"));
    }

    void submitAddress() {
        server->route("POST", "/api/jobs", Response::json(201, R"({"job_id":"url-9"})"));
        const MarluneRun run = marlune({"submit", "https://example.org/song"});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out.trimmed(), QStringLiteral("url-9"));
        const QJsonObject body = QJsonDocument::fromJson(server->requests().value(0).body).object();
        QCOMPARE(body.value("url").toString(), QStringLiteral("https://example.org/song"));
        QCOMPARE(body.value("stems").toArray().size(), 6);
    }

    void submitNeitherFileNorAddress() {
        const MarluneRun run = marlune({"submit", "/nulle/part.wav"});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.err.contains(QStringLiteral("Ni un fichier ni une adresse web")));
        QCOMPARE(server->requests().size(), 0);
    }

    void download() {
        server->route("GET", "/api/jobs/j/stems/bass.wav", Response::text(200, "RIFFbass"));
        const MarluneRun run = marlune({"download", "j", "bass"});
        QCOMPARE(run.exitCode, 0);
        QFile file(run.out.trimmed());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray("RIFFbass"));
        QVERIFY(file.fileName().startsWith(home.path()));

        const MarluneRun missing = marlune({"download", "j", "piano"});
        QCOMPARE(missing.exitCode, 1);
        QVERIFY(missing.err.contains(QStringLiteral("piano")));
        QVERIFY(missing.out.isEmpty());
    }

    void usageErrors_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("job without id") << QStringList{"job"};
        QTest::newRow("two ids") << QStringList{"cancel", "a", "b"};
        QTest::newRow("json where none") << QStringList{"trash", "a", "--json"};
        QTest::newRow("unknown stem") << QStringList{"submit", "x.wav", "--stems", "vocals,kazoo"};
        QTest::newRow("empty stems") << QStringList{"submit", "x.wav", "--stems", ","};
        QTest::newRow("stems without value") << QStringList{"submit", "x.wav", "--stems"};
        QTest::newRow("unknown kind") << QStringList{"download", "j", "kazoo"};
        QTest::newRow("unknown option") << QStringList{"jobs", "--all"};
    }

    void usageErrors() {
        QFETCH(QStringList, arguments);
        const MarluneRun run = marlune(arguments);
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.err.contains(QStringLiteral("Utilisation : marlune ")), qPrintable(run.err));
        QCOMPARE(server->requests().size(), 0);
    }
};

QTEST_GUILESS_MAIN(JobCommandsTest)
#include "JobCommandsTest.moc"
