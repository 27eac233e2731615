#include "app/AppState.h"
#include "engine_client/BackendService.h"
#include "runtime/PythonRuntimeService.h"
#include "support/TempInstallRoot.h"
#include "support/TestHttpServer.h"
#include "support/TestSupport.h"

#include <QCoro/QCoroTask>
#include <QCoro/QCoroTimer>
#include <QtTest>

using namespace std::chrono_literals;

namespace {
// An engine stand-in that records its launch and exits at once: the process "dies" before attempt 45.
const QByteArray kDyingEngine = "#!/bin/sh\necho launched >> \"$(dirname \"$0\")/../../../../launches\"\n";

struct Startup {
    TempInstallRoot temp;
    TestHttpServer health;
    std::unique_ptr<PythonRuntimeService> runtime;
    std::unique_ptr<BackendService> backend;
    std::unique_ptr<AppState> state;
    int sleeps = 0;

    explicit Startup(bool installed = true) {
        const QString tool = temp.writeFile(QStringLiteral("sys/ffmpeg"), "x", true);
        if (installed) {
            temp.writeFile(QStringLiteral("Halvorn/backends/v1.0.0/.venv/bin/python"), kDyingEngine, true);
            temp.writeFile(QStringLiteral("Halvorn/backends/v1.0.0/.halvorn-ready"), "");
        }
        runtime = std::make_unique<PythonRuntimeService>(
            PythonRuntimeService::Config{{temp.root(), temp.documents(), temp.home(), {tool}, {tool}},
                                         temp.settingsFile(),
                                         QProcessEnvironment::systemEnvironment(),
                                         temp.home(),
                                         QStringLiteral("u"),
                                         1});
        BackendService::Config config = BackendService::defaultConfig();
        config.baseURL = health.baseUrl();
        config.cacheRoot = temp.path() + QStringLiteral("/cache");
        config.recordRunningVersion = [this](const std::optional<QString>& v) {
            runtime->setRunningVersion(v);
        };
        backend = std::make_unique<BackendService>(config);
        state = std::make_unique<AppState>(*backend, *runtime, TestSupport::freePort());
        state->setSleep([this](std::chrono::milliseconds) {
            ++sleeps;
            return QCoro::sleepFor(1ms);
        });
    }

    int launches() const {
        QFile file(temp.root() + QStringLiteral("/launches"));
        return file.open(QIODevice::ReadOnly) ? int(file.readAll().count('\n')) : 0;
    }
    void run() { QCoro::waitFor(state->startupSequence()); }
};
} // namespace

class StartupSequenceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void notInstalledOpensSetupAndStartsNothing() {
        Startup startup(false);
        startup.health.route("GET", "/api/health", TestHttpServer::Response::json(200, R"({"status":"ok"})"));
        startup.run();
        QCOMPARE(startup.state->screen(), AppScreen::setup);
        QVERIFY(!startup.state->isSetupComplete());
        QCOMPARE(startup.health.requestCount("/api/health"), 0);
        QCOMPARE(startup.launches(), 0);
    }

    void aListeningEngineIsAdopted() {
        Startup startup;
        startup.health.route("GET", "/api/health",
                             TestHttpServer::Response::json(200, R"({"status":"ok","version":"2.1.0"})"));
        startup.run();
        QVERIFY(startup.state->backendReady());
        QCOMPARE(startup.launches(), 0);
        QCOMPARE(startup.sleeps, 0);
        QCOMPARE(startup.runtime->runningVersion(), QStringLiteral("2.1.0"));
    }

    void readyAfterSomeAttempts() {
        Startup startup;
        int calls = 0;
        startup.health.route("GET", "/api/health", [&calls](const TestHttpServer::Request&) {
            ++calls;
            return calls < 4 ? TestHttpServer::Response::json(503, "{}")
                             : TestHttpServer::Response::json(200, R"({"status":"ok","version":"1.0.0"})");
        });
        startup.run();
        QVERIFY(startup.state->backendReady());
        QVERIFY(TestSupport::waitUntil([&] { return startup.launches() == 1; }, 5000));
        QCOMPARE(startup.sleeps, 3); // the first answer was the adoption check
    }

    void neverHealthyGivesUpAfterNinetyAttemptsWithOneRestart() {
        Startup startup;
        startup.health.route(
            "GET", "/api/health",
            TestHttpServer::Response::json(200, R"({"status":"loading","version":"3.0.0"})"));
        startup.run();
        QVERIFY(!startup.state->backendReady());
        QCOMPARE(startup.health.requestCount("/api/health"), 91); // the adoption check, then 90 attempts
        QVERIFY(TestSupport::waitUntil([&] { return startup.launches() == 2; }, 5000));
        QCOMPARE(startup.runtime->runningVersion(), QStringLiteral("3.0.0"));
        QVERIFY(startup.runtime->setupLog().endsWith(
            QStringLiteral("⚠️ Backend non disponible après 90 s — voir Réglages › Diagnostic\n")));
    }
};

QTEST_GUILESS_MAIN(StartupSequenceTest)
#include "StartupSequenceTest.moc"
