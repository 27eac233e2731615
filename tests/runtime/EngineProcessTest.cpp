#include "log/AppLogger.h"
#include "platform/SettingsStore.h"
#include "runtime/PythonRuntimeService.h"
#include "runtime/SetupError.h"
#include "support/TempInstallRoot.h"
#include "support/TestSupport.h"

#include <QCoro/QCoroTask>
#include <QElapsedTimer>
#include <QProcess>
#include <QtTest>
#include <csignal>

namespace {

// An engine stand-in: listens on --port, prints a line with its environment, and can ignore SIGTERM.
const QByteArray kStandIn = R"(#!/usr/bin/python3
import os, signal, socket, sys, time
args = sys.argv[1:]
if args[:2] == ["-m", "app.pipeline.warmup"]:
    print("WARMUP_OK htdemucs")
    print("WARMUP_FAILED mdx_extra could not load")
    print("WARMUP_FAILED   ")
    sys.exit(int(os.environ.get("STANDIN_WARMUP_STATUS", "0")))
if os.environ.get("STANDIN_IGNORE_TERM"):
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
port = int(args[args.index("--port") + 1])
server = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
server.bind(("127.0.0.1", port))
server.listen()
print("engine up", os.getcwd(), os.environ.get("HALVORN_PARENT_PID"), os.environ.get("PATH").split(":")[0], flush=True)
time.sleep(0.3)
sys.stdout.buffer.write(b"bad \xff\xfe bytes\n"); sys.stdout.flush()
time.sleep(0.3)
print("après", flush=True)
while True:
    time.sleep(0.05)
)";

const QByteArray kListener = R"(import socket, sys, time
s = socket.socket(); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("127.0.0.1", int(sys.argv[1]))); s.listen(); print("ready", flush=True)
while True: time.sleep(0.1)
)";

struct Fixture {
    TempInstallRoot temp;
    std::unique_ptr<PythonRuntimeService> service;

    explicit Fixture(const QString& tag = QStringLiteral("v1.0.0"),
                     QProcessEnvironment base = QProcessEnvironment::systemEnvironment()) {
        if (!tag.isEmpty()) {
            temp.writeFile(QStringLiteral("Halvorn/backends/%1/.venv/bin/python").arg(tag), kStandIn, true);
            temp.writeFile(QStringLiteral("Halvorn/backends/%1/.halvorn-ready").arg(tag), "");
        }
        service = std::make_unique<PythonRuntimeService>(
            PythonRuntimeService::Config{{temp.root(), temp.documents(), temp.home(), {}, {}},
                                         temp.settingsFile(),
                                         base,
                                         temp.home(),
                                         QStringLiteral("tester"),
                                         4242});
    }
};

} // namespace

class EngineProcessTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsOutputsAndStops() {
        Fixture fixture;
        PythonRuntimeService& service = *fixture.service;
        const quint16 port = TestSupport::freePort();
        QSignalSpy running(&service, &PythonRuntimeService::isRunningChanged);
        QCoro::waitFor(service.startBackend(port));
        QVERIFY(service.isRunning());
        QCOMPARE(service.runningTag(), QStringLiteral("v1.0.0"));
        QCOMPARE(service.port(), port);
        QVERIFY(service.setupLog().contains(
            QStringLiteral("✅ Backend v1.0.0 → http://127.0.0.1:%1\n").arg(port)));
        QVERIFY(TestSupport::waitUntil([&] { return service.setupLog().contains(QStringLiteral("après")); }));
        // Undecodable output reaches backend.log only.
        QVERIFY(!service.setupLog().contains(QStringLiteral("bad")));
        const QString expectedLine =
            QStringLiteral("engine up %1 4242 %2")
                .arg(QDir(service.layout().backendDir(QStringLiteral("v1.0.0"))).canonicalPath(),
                     service.layout().backendBinDir(QStringLiteral("v1.0.0")));
        QVERIFY2(service.setupLog().contains(expectedLine), qPrintable(service.setupLog()));
        QVERIFY(TestSupport::isListening(port));
        QFile log(service.layout().backendLogPath());
        QVERIFY(log.open(QIODevice::ReadOnly));
        QVERIFY(log.readAll().contains("bad \xff\xfe bytes"));
        QVERIFY(QDir(service.layout().dataDir()).exists());
        QVERIFY(QDir(service.layout().jobsDir()).exists());

        QCoro::waitFor(service.stopBackend());
        QVERIFY(!service.isRunning());
        QVERIFY(!service.runningTag());
        QVERIFY(TestSupport::waitUntil([&] { return !TestSupport::isListening(port); }));
        QCOMPARE(running.count(), 2);
    }

    void startWhileRunningDoesNothing() {
        Fixture fixture;
        PythonRuntimeService& service = *fixture.service;
        const quint16 port = TestSupport::freePort();
        QCoro::waitFor(service.startBackend(port));
        const qint64 pid = service.backendPid();
        const QString logBefore = service.setupLog();
        const quint16 otherPort = TestSupport::freePort();
        QElapsedTimer timer;
        timer.start();
        QCoro::waitFor(service.startBackend(otherPort));
        QVERIFY2(timer.elapsed() < 400, "a second start must not even clean the port up");
        QCOMPARE(service.backendPid(), pid);
        QCOMPARE(service.port(), otherPort); // the port is remembered for a restart
        QCOMPARE(service.setupLog(), logBefore);
        QCoro::waitFor(service.stopBackend());
    }

    void listenerOnThePortIsKilledBeforeLaunch() {
        Fixture fixture;
        const quint16 port = TestSupport::freePort();
        QProcess listener;
        listener.start(QStringLiteral("/usr/bin/python3"),
                       {QStringLiteral("-c"), QString::fromUtf8(kListener), QString::number(port)});
        QVERIFY(listener.waitForReadyRead(5000));
        QCoro::waitFor(fixture.service->startBackend(port));
        QVERIFY(listener.state() == QProcess::NotRunning || listener.waitForFinished(3000));
        QVERIFY(fixture.service->isRunning());
        QVERIFY(TestSupport::waitUntil(
            [&] { return fixture.service->setupLog().contains(QStringLiteral("engine up")); }));
        QCoro::waitFor(fixture.service->stopBackend());
    }

    void engineIgnoringTermIsKilledAfterFourSeconds() {
        QProcessEnvironment base = QProcessEnvironment::systemEnvironment();
        base.insert(QStringLiteral("STANDIN_IGNORE_TERM"), QStringLiteral("1"));
        Fixture fixture(QStringLiteral("v1.0.0"), base);
        const quint16 port = TestSupport::freePort();
        QCoro::waitFor(fixture.service->startBackend(port));
        QVERIFY(TestSupport::waitUntil(
            [&] { return fixture.service->setupLog().contains(QStringLiteral("engine up")); }));
        const pid_t pid = static_cast<pid_t>(fixture.service->backendPid());
        QElapsedTimer timer;
        timer.start();
        QCoro::waitFor(fixture.service->stopBackend());
        const qint64 elapsed = timer.elapsed();
        QVERIFY2(elapsed >= 3800 && elapsed < 6000, qPrintable(QString::number(elapsed)));
        QVERIFY(TestSupport::waitUntil([&] { return ::kill(pid, 0) != 0; }));
        QVERIFY(!fixture.service->isRunning());
    }

    void engineExitClearsState() {
        Fixture fixture;
        PythonRuntimeService& service = *fixture.service;
        QCoro::waitFor(service.startBackend(TestSupport::freePort()));
        service.setRunningVersion(QStringLiteral("1.0.0"));
        ::kill(static_cast<pid_t>(service.backendPid()), SIGKILL);
        QVERIFY(TestSupport::waitUntil([&] { return !service.isRunning(); }));
        QVERIFY(!service.runningTag());
        QVERIFY(!service.runningVersion());
        QCOMPARE(service.backendPid(), 0);
    }

    void restartLaunchesOnTheSamePort() {
        Fixture fixture;
        PythonRuntimeService& service = *fixture.service;
        const quint16 port = TestSupport::freePort();
        QCoro::waitFor(service.startBackend(port));
        const qint64 first = service.backendPid();
        QCoro::waitFor(service.restartBackend());
        QVERIFY(service.isRunning());
        QVERIFY(service.backendPid() != first);
        QCOMPARE(service.port(), port);
        QVERIFY(TestSupport::waitUntil([&] { return TestSupport::isListening(port); }));
        QCoro::waitFor(service.stopBackend());
    }

    void notInstalledLaunchesNothing() {
        Fixture fixture{QString()};
        QCoro::waitFor(fixture.service->startBackend(TestSupport::freePort()));
        QVERIFY(!fixture.service->isRunning());
        QCOMPARE(fixture.service->setupLog(),
                 QStringLiteral("⚠️ Backend non installé — configuration requise\n"));
    }

    void backendEnvironmentFollowsTheSettings_data() {
        QTest::addColumn<QVariant>("device");
        QTest::addColumn<QVariant>("maxDuration");
        QTest::addColumn<QString>("expectedDevice");
        QTest::addColumn<QString>("expectedMax");
        QTest::newRow("nothing stored") << QVariant() << QVariant() << QString() << QString();
        QTest::newRow("cpu, 60") << QVariant("cpu") << QVariant(60) << "cpu"
                                 << "60";
        QTest::newRow("cuda, 59") << QVariant("cuda") << QVariant(59) << "cuda" << QString();
        QTest::newRow("auto, 1200") << QVariant("auto") << QVariant(1200) << QString() << "1200";
        QTest::newRow("mps is not a Linux device")
            << QVariant("mps") << QVariant(0) << QString() << QString();
    }
    void backendEnvironmentFollowsTheSettings() {
        QFETCH(QVariant, device);
        QFETCH(QVariant, maxDuration);
        QFETCH(QString, expectedDevice);
        QFETCH(QString, expectedMax);
        Fixture fixture;
        {
            SettingsStore settings(fixture.temp.settingsFile());
            if (device.isValid())
                settings.setDemucsDevice(device.toString());
            if (maxDuration.isValid())
                settings.setMaxDuration(maxDuration.toInt());
        }
        const QProcessEnvironment environment = fixture.service->backendEnvironment();
        QCOMPARE(environment.value(QStringLiteral("HALVORN_DEMUCS_DEVICE")), expectedDevice);
        QCOMPARE(environment.contains(QStringLiteral("HALVORN_DEMUCS_DEVICE")), !expectedDevice.isEmpty());
        QCOMPARE(environment.value(QStringLiteral("HALVORN_MAX_DURATION_SEC")), expectedMax);
        QCOMPARE(environment.contains(QStringLiteral("HALVORN_MAX_DURATION_SEC")), !expectedMax.isEmpty());
    }

    void backendEnvironmentPathsAndFFmpeg() {
        QProcessEnvironment base;
        base.insert(QStringLiteral("PATH"), QStringLiteral("/usr/bin"));
        base.insert(QStringLiteral("PYTHONPATH"), QStringLiteral("/leak"));
        Fixture fixture(QStringLiteral("v1.0.0"), base);
        const InstallLayout& layout = fixture.service->layout();
        QProcessEnvironment environment = fixture.service->backendEnvironment();
        QCOMPARE(
            environment.value(QStringLiteral("PATH")),
            QStringList({layout.backendBinDir(QStringLiteral("v1.0.0")), layout.ffmpegDir(),
                         layout.jsRuntimeDir(),
                         QStringLiteral("/usr/bin:/bin:/usr/sbin:/sbin:/opt/homebrew/bin:/usr/local/bin")})
                .join(QLatin1Char(':')));
        QCOMPARE(environment.value(QStringLiteral("HALVORN_DATA_DIR")), layout.dataDir());
        QCOMPARE(environment.value(QStringLiteral("HALVORN_DEFAULT_JOBS_DIR")),
                 fixture.temp.documents() + QStringLiteral("/Halvorn/jobs"));
        QCOMPARE(environment.value(QStringLiteral("HALVORN_PERSIST_LIBRARY")), QStringLiteral("1"));
        QCOMPARE(environment.value(QStringLiteral("TORCH_HOME")),
                 layout.dataDir() + QStringLiteral("/models/torch"));
        QVERIFY(!environment.contains(QStringLiteral("PYTHONPATH")));
        QVERIFY(!environment.contains(QStringLiteral("HALVORN_FFMPEG"))); // no FFmpeg anywhere
        // The install's own FFmpeg is not announced.
        fixture.temp.writeFile(QStringLiteral("Halvorn/data/ffmpeg/ffmpeg"), "x", true);
        fixture.temp.writeFile(QStringLiteral("Halvorn/data/ffmpeg/ffprobe"), "x", true);
        environment = fixture.service->backendEnvironment();
        QVERIFY(!environment.contains(QStringLiteral("HALVORN_FFMPEG")));
        QVERIFY(!environment.contains(QStringLiteral("HALVORN_FFPROBE")));
    }

    void systemFFmpegIsAnnounced() {
        TempInstallRoot temp;
        const QString ffmpeg = temp.writeFile(QStringLiteral("sys/ffmpeg"), "x", true);
        const QString ffprobe = temp.writeFile(QStringLiteral("sys/ffprobe"), "x", true);
        PythonRuntimeService service({{temp.root(), temp.documents(), temp.home(), {ffmpeg}, {ffprobe}},
                                      temp.settingsFile(),
                                      {},
                                      temp.home(),
                                      QStringLiteral("u"),
                                      1});
        const QProcessEnvironment environment = service.backendEnvironment();
        QCOMPARE(environment.value(QStringLiteral("HALVORN_FFMPEG")), ffmpeg);
        QCOMPARE(environment.value(QStringLiteral("HALVORN_FFPROBE")), ffprobe);
    }

    void warmUpRecordsFailedModels() {
        Fixture fixture;
        QCoro::waitFor(fixture.service->warmUpModels());
        QCOMPARE(fixture.service->manifest().modelsWarmedTag, QStringLiteral("v1.0.0"));
        QCOMPARE(fixture.service->manifest().modelsFailed, QStringList{QStringLiteral("mdx_extra")});
        ManifestStore reread{fixture.service->layout()};
        reread.load();
        QCOMPARE(reread.manifest().modelsWarmedTag, QStringLiteral("v1.0.0"));
    }

    void failedWarmUpKeepsTheOldRecord() {
        QProcessEnvironment base = QProcessEnvironment::systemEnvironment();
        base.insert(QStringLiteral("STANDIN_WARMUP_STATUS"), QStringLiteral("2"));
        Fixture fixture(QStringLiteral("v1.0.0"), base);
        fixture.service->manifest().modelsWarmedTag = QStringLiteral("v0.9.0");
        QString message;
        QCoro::waitFor([&]() -> QCoro::Task<> {
            try {
                co_await fixture.service->warmUpModels();
            } catch (const SetupError& error) {
                message = error.message();
            }
        }());
        QVERIFY2(message.startsWith(QStringLiteral("python (code 2)\nWARMUP_OK htdemucs")),
                 qPrintable(message));
        QCOMPARE(fixture.service->manifest().modelsWarmedTag, QStringLiteral("v0.9.0"));
    }

    void setupLogIsTrimmedToItsLastHundredThousandCharacters() {
        Fixture fixture{QString()};
        const QString chunk = QString(999, QLatin1Char('x'));
        for (int i = 0; i < 201; ++i)
            fixture.service->log(chunk + QString::number(i % 10));
        QVERIFY(fixture.service->setupLog().size() <= PythonRuntimeService::setupLogLimit);
        QVERIFY(fixture.service->setupLog().size() >= PythonRuntimeService::setupLogKept);
        QVERIFY(fixture.service->setupLog().endsWith(QStringLiteral("x0\n")));
    }
};

QTEST_GUILESS_MAIN(EngineProcessTest)
#include "EngineProcessTest.moc"
