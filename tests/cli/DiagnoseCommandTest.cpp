#include "support/MarluneProcess.h"
#include "support/TestHttpServer.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

// `marlune diagnose`: the report on standard output as it is written, against a stopped or a local engine.
class DiagnoseCommandTest : public QObject {
    Q_OBJECT

    QTemporaryDir home;
    quint16 deadPort = 0;
    QString video;
    QProcessEnvironment environment;

private Q_SLOTS:
    void initTestCase() {
        deadPort = TestSupport::freePort();
        const QString nowhere = QStringLiteral("http://127.0.0.1:%1").arg(deadPort);
        video = nowhere + QStringLiteral("/video");
        environment = marluneEnvironment(home.path(), deadPort);
        QDir().mkpath(home.filePath(QStringLiteral("tmp")));
        environment.insert(QStringLiteral("TMPDIR"), home.filePath(QStringLiteral("tmp")));
        environment.insert(QStringLiteral("MARLUNE_DIAG_VIDEO_URL"), video);
        for (const char* variable : {"MARLUNE_GITHUB_API_URL", "MARLUNE_GITHUB_URL", "MARLUNE_PYPI_URL"})
            environment.insert(QString::fromLatin1(variable), nowhere);
    }

    void fullReportWithTheEngineStopped() {
        const MarluneRun run = runMarlune({"diagnose"}, environment);
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.out.startsWith(QStringLiteral("=== Diagnostic Marlune ===\n\n── ffmpeg ─")),
                 qPrintable(run.out));
        QVERIFY(run.out.endsWith(
            QStringLiteral("  ❌ http://127.0.0.1:%1/ → NON ACCESSIBLE\n\n=== Fin du diagnostic ===\n")
                .arg(deadPort)));
        QVERIFY(!run.out.contains(QStringLiteral("[Diag]")));
        // Debian's FFmpeg is a dependency: the test conversion runs in the temporary folder.
        const QString mp3 = home.filePath(QStringLiteral("tmp/test_halvorn.mp3"));
        QVERIFY(run.out.contains(
            QStringLiteral("  ✅ MP3 créé: %1 (%2 bytes)\n").arg(mp3).arg(QFileInfo(mp3).size())));
        QVERIFY(run.out.contains(QStringLiteral("  (pas de log backend)\n")));
    }

    void engineTestFollowsTheJob() {
        TestHttpServer engine;
        engine.route("POST", "/api/jobs", TestHttpServer::Response::json(200, R"({"job_id":"abc"})"));
        engine.route("GET", "/api/jobs/abc", TestHttpServer::Response::json(200, R"({"status":"done"})"));
        QProcessEnvironment withEngine = environment;
        withEngine.insert(QStringLiteral("MARLUNE_ENGINE_URL"), engine.baseUrl().toString());
        const MarluneRun run = runMarlune({"diagnose", "--engine-test"}, withEngine);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QStringLiteral("=== Test YouTube Backend ===\n\nPOST /api/jobs url=%1\n\n"
                                         "Réponse: {\"job_id\":\"abc\"}\n\nJob: abc — attente 30s…\n"
                                         "[2s] {\"status\":\"done\"}\n\n=== Fin du test ===\n")
                              .arg(video));
    }

    void engineTestWithTheEngineStopped() {
        const MarluneRun run = runMarlune({"diagnose", "--engine-test"}, environment);
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.endsWith(QStringLiteral("\n❌ Backend inaccessible\n")));
    }

    void usageErrors_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("unknown option") << QStringList{"diagnose", "--fast"};
        QTest::newRow("address missing") << QStringList{"diagnose", "--engine-url"};
    }
    void usageErrors() {
        QFETCH(QStringList, arguments);
        const MarluneRun run = runMarlune(arguments, environment);
        QCOMPARE(run.exitCode, 2);
        QVERIFY(run.out.isEmpty());
        QVERIFY(run.err.contains(QStringLiteral("Utilisation : marlune diagnose")));
    }
};

QTEST_GUILESS_MAIN(DiagnoseCommandTest)
#include "DiagnoseCommandTest.moc"
