#include "diagnostics/DiagnosticReport.h"
#include "engine_client/BackendService.h"
#include "runtime/PythonRuntimeService.h"
#include "support/TempInstallRoot.h"
#include "support/TestHttpServer.h"
#include "support/TestSupport.h"

#include <QCoro/QCoroTask>
#include <QtTest>
#include <atomic>

using namespace std::chrono_literals;

namespace {

// Records every call beside itself (builtins only: the PATH is the test's), then runs the real FFmpeg.
const QByteArray kFFmpegWrapper = "#!/bin/sh\necho \"$0 $*\" >> \"${0%/*}/calls\"\n"
                                  "exec /usr/bin/ffmpeg \"$@\"\n";

// An FFmpeg that prints on standard output and fails; `creates` makes its output file exist first.
QByteArray failingFFmpeg(bool creates, const QByteArray& message) {
    return "#!/bin/sh\nfor a; do last=$a; done\n"
           "if [ \"$1\" = -version ]; then echo 'ffmpeg version fake'; exit 0; fi\n"
           "case \"$last\" in *.wav) " +
           QByteArray(creates ? ": > \"$last\"" : ":") + ";; esac\nprintf '%s' '" + message + "'\nexit 1\n";
}

// A yt-dlp that gives its version, or prints its arguments (blank lines between) and an error, failing.
const QByteArray kFakeYtDlp = "#!/bin/sh\nif [ \"$1\" = --version ]; then echo ' 2025.01.15 '; exit 0; fi\n"
                              "for a; do echo \"$a\"; echo; done\necho 'ERROR: unreachable' >&2\nexit 1\n";

QCoro::Task<> noWait() {
    co_return;
}

const QString kRule = QStringLiteral("──────────────────────────────");

struct Fixture {
    TempInstallRoot temp;
    QString searchDir; // the tools' PATH
    QString tempDir;
    std::unique_ptr<PythonRuntimeService> runtime;
    std::unique_ptr<BackendService> backend;
    DiagnosticReport::Config config;
    QStringList console;
    QStringList appended;
    std::atomic<qint64> clockMs{0};
    QList<qint64> sleeps; // milliseconds

    explicit Fixture(const QUrl& engine) {
        searchDir = temp.path() + QStringLiteral("/path");
        tempDir = temp.path() + QStringLiteral("/tmp");
        QDir().mkpath(searchDir);
        QDir().mkpath(tempDir);
        PythonRuntimeService::Config runtimeConfig{{temp.root(), temp.documents(), temp.home(), {}, {}},
                                                   temp.settingsFile(),
                                                   QProcessEnvironment::systemEnvironment(),
                                                   temp.home(),
                                                   QStringLiteral("tester"),
                                                   4242};
        // Latest-version lookups fail at once; no system compiler or fpcalc.
        const QString nowhere = QStringLiteral("http://127.0.0.1:%1").arg(TestSupport::freePort());
        runtimeConfig.tools.addresses = BaseAddresses{nowhere, nowhere, nowhere, nowhere};
        runtimeConfig.systemTools.compiler = temp.path() + QStringLiteral("/no/cc");
        runtimeConfig.systemTools.fpcalcCandidates = {};
        runtime = std::make_unique<PythonRuntimeService>(runtimeConfig);
        BackendService::Config backendConfig;
        backendConfig.baseURL = engine;
        backendConfig.cacheRoot = temp.path() + QStringLiteral("/cache");
        backendConfig.tempDir = tempDir;
        backendConfig.console = [](const QString&) {};
        backend = std::make_unique<BackendService>(backendConfig);

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("PATH"), searchDir);
        config = DiagnosticReport::defaultConfig();
        config.systemFFmpegCandidates = {temp.path() + QStringLiteral("/local/ffmpeg"),
                                         temp.path() + QStringLiteral("/usr/ffmpeg")};
        config.systemYtDlpCandidates = {temp.path() + QStringLiteral("/local/yt-dlp"),
                                        temp.path() + QStringLiteral("/usr/yt-dlp")};
        config.toolEnvironment = environment;
        config.tempDir = tempDir;
        config.testVideoURL = QStringLiteral("http://127.0.0.1:9/video");
        config.refreshComponents = nullptr; // the rows as they stand, unless a test says otherwise
        config.sleep = [this](std::chrono::milliseconds duration) {
            sleeps.append(duration.count());
            clockMs += duration.count();
            return noWait();
        };
        config.console = [this](const QString& line) { console.append(line); };
    }

    std::unique_ptr<DiagnosticReport> report() {
        auto made = std::make_unique<DiagnosticReport>(*runtime, *backend, config);
        QObject::connect(made.get(), &DiagnosticReport::lineAppended,
                         [this](const QString& line) { appended.append(line); });
        return made;
    }

    // Runs the full diagnostic and checks that the log, the signal and the console agree.
    QStringList diagnose() {
        const std::unique_ptr<DiagnosticReport> made = report();
        QCoro::waitFor(made->runFullDiagnostic());
        checkCopies(*made);
        return appended;
    }

    void checkCopies(const DiagnosticReport& made) const {
        QVERIFY(!made.running());
        QCOMPARE(made.log(), appended.join(QLatin1Char('\n')) + QLatin1Char('\n'));
        QStringList expected;
        for (const QString& line : appended)
            expected.append(QStringLiteral("[Diag] ") + line);
        QCOMPARE(console, expected);
    }

    QString installedTool(const QString& relative, const QByteArray& script, bool executable = true) const {
        return temp.writeFile(relative, script, executable);
    }
    QStringList calls(const QString& toolDir) const {
        QFile file(toolDir + QStringLiteral("/calls"));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
};

// The lines from `header` up to the next section.
QStringList section(const QStringList& lines, const QString& header) {
    const qsizetype start = lines.indexOf(header);
    if (start < 0)
        return {};
    QStringList result{lines.at(start)};
    for (qsizetype i = start + 1; i < lines.size() && !lines.at(i).startsWith(QLatin1Char('\n')); ++i)
        result.append(lines.at(i));
    return result;
}

const QString kFFmpegHeader = QStringLiteral("── ffmpeg ") + kRule;
const QString kConversionHeader = QStringLiteral("\n── Test conversion M4A → MP3 ──────────────");
const QString kYtDlpHeader = QStringLiteral("\n── yt-dlp ──────────────────────────────────");
const QString kComponentsHeader = QStringLiteral("\n── Composants ──────────────────────────────");
const QString kLogHeader = QStringLiteral("\n── Logs backend (dernières lignes) ─────────");
const QString kEngineHeader = QStringLiteral("\n── Backend uvicorn ─────────────────────────");

QByteArray jobBody(const QByteArray& status) {
    return R"({"job_id":"abc","status":")" + status + R"("})";
}

} // namespace

class DiagnosticReportTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void bareInstallWithTheEngineStopped() {
        const QUrl engine(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort()));
        Fixture fixture(engine);
        fixture.config.refreshComponents = DiagnosticReport::defaultConfig().refreshComponents;
        const QString root = fixture.temp.root();
        const QStringList lines = fixture.diagnose();
        QStringList expected{
            QStringLiteral("=== Diagnostic Marlune ===\n"),
            kFFmpegHeader,
            QStringLiteral("  ❌ ") + root + QStringLiteral("/data/ffmpeg/ffmpeg"),
            QStringLiteral("  ❌ ") + fixture.config.systemFFmpegCandidates.at(0),
            QStringLiteral("  ❌ ") + fixture.config.systemFFmpegCandidates.at(1),
            QStringLiteral("  which ffmpeg → ❌ introuvable"),
            QStringLiteral("  ❌ ffmpeg ABSENT — installer via: sudo apt install ffmpeg"),
            QStringLiteral("  ❌ ffprobe ABSENT — installer via: sudo apt install ffmpeg"),
            kConversionHeader,
            QStringLiteral("  ⏭ Skipped (ffmpeg absent)"),
            kYtDlpHeader,
            QStringLiteral("  ❌ ") + root + QStringLiteral("/backends/none/.venv/bin/yt-dlp"),
            QStringLiteral("  ❌ ") + fixture.config.systemYtDlpCandidates.at(0),
            QStringLiteral("  ❌ ") + fixture.config.systemYtDlpCandidates.at(1),
            QStringLiteral("  which yt-dlp → ❌ introuvable"),
            QStringLiteral("  ❌ yt-dlp ABSENT"),
            kComponentsHeader,
            QStringLiteral("  Backend actif : aucun → ") + root + QStringLiteral("/backends/none"),
            QStringLiteral("  Données       : ") + root + QStringLiteral("/data"),
            QStringLiteral("  Bibliothèque  : ") + fixture.temp.documents() +
                QStringLiteral("/Halvorn/jobs")};
        // The runtime's own refresh: fixed versions known, every lookup failed, nothing installed.
        expected += QStringList{QStringLiteral("  ⚠️ FFmpeg + ffprobe: — (dernière : 8.1.2)"),
                                QStringLiteral("  ⚠️ Chromaprint (fpcalc): — (dernière : 1.6.1)"),
                                QStringLiteral("  ⚠️ QuickJS: — (dernière : 0.16.2)"),
                                QStringLiteral("  ⚠️ uv: —"),
                                QStringLiteral("  ⚠️ Python: — (dernière : 3.12)"),
                                QStringLiteral("  ⚠️ Outils de compilation: —"),
                                QStringLiteral("  ⚠️ Moteur Halvorn: —"),
                                QStringLiteral("  ⚠️ yt-dlp: —"),
                                QStringLiteral("  ⚠️ Modèles IA: —")};
        expected += QStringList{kLogHeader, QStringLiteral("  (pas de log backend)"), kEngineHeader,
                                QStringLiteral("  ❌ %1 → NON ACCESSIBLE").arg(engine.toString()),
                                QStringLiteral("\n=== Fin du diagnostic ===")};
        QCOMPARE(lines, expected);
        QVERIFY(QDir(fixture.tempDir).isEmpty()); // no conversion was attempted
    }

    void firstExecutableFFmpegIsUsed_data() {
        QTest::addColumn<QString>("where"); // own, system or path
        QTest::addColumn<bool>("ownNotExecutable");
        QTest::addColumn<QStringList>("marks"); // of the three candidate lines
        QTest::newRow("search path only") << "path" << false << QStringList{"❌", "❌", "❌"};
        QTest::newRow("own copy not executable") << "path" << true << QStringList{"❌", "❌", "❌"};
        QTest::newRow("second system candidate") << "system" << false << QStringList{"❌", "❌", "✅"};
        QTest::newRow("own copy") << "own" << false << QStringList{"✅", "❌", "❌"};
    }
    void firstExecutableFFmpegIsUsed() {
        QFETCH(QString, where);
        QFETCH(bool, ownNotExecutable);
        QFETCH(QStringList, marks);
        Fixture fixture(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        const QString own = fixture.temp.root() + QStringLiteral("/data/ffmpeg/ffmpeg");
        const QString used = where == QLatin1String("own") ? own
                             : where == QLatin1String("system")
                                 ? fixture.config.systemFFmpegCandidates.at(1)
                                 : fixture.searchDir + QStringLiteral("/ffmpeg");
        const auto install = [&](const QString& path, bool executable) {
            fixture.temp.writeFile(path.mid(fixture.temp.path().size() + 1), kFFmpegWrapper, executable);
        };
        install(used, true);
        if (ownNotExecutable)
            install(own, false);
        if (where != QLatin1String("path")) // which finds one anyway
            install(fixture.searchDir + QStringLiteral("/ffmpeg"), true);

        const QStringList lines = fixture.diagnose();
        const QStringList ffmpeg = section(lines, kFFmpegHeader);
        QCOMPARE(
            ffmpeg.mid(1, 3),
            (QStringList{
                QStringLiteral("  %1 %2").arg(marks.at(0), own),
                QStringLiteral("  %1 %2").arg(marks.at(1), fixture.config.systemFFmpegCandidates.at(0)),
                QStringLiteral("  %1 %2").arg(marks.at(2), fixture.config.systemFFmpegCandidates.at(1))}));
        QCOMPARE(ffmpeg.at(4),
                 QStringLiteral("  which ffmpeg → ") + fixture.searchDir + QStringLiteral("/ffmpeg"));
        QVERIFY2(ffmpeg.at(5).startsWith(QStringLiteral("  version: ffmpeg version ")),
                 qPrintable(ffmpeg.at(5)));
        QVERIFY(!ffmpeg.at(5).contains(QLatin1Char('\n')));

        const QString wav = fixture.tempDir + QStringLiteral("/test_halvorn.wav");
        const QString mp3 = fixture.tempDir + QStringLiteral("/test_halvorn.mp3");
        QVERIFY(QFileInfo(mp3).size() > 0);
        QCOMPARE(
            section(lines, kConversionHeader),
            (QStringList{kConversionHeader, QStringLiteral("  ✅ Fichier test créé: ") + wav,
                         QStringLiteral("  ✅ MP3 créé: %1 (%2 bytes)").arg(mp3).arg(QFileInfo(mp3).size())}));
        // The version and both conversion steps ran the chosen FFmpeg, and only it.
        const QStringList calls = fixture.calls(QFileInfo(used).absolutePath());
        QCOMPARE(calls.size(), 3);
        QCOMPARE(calls.at(0), used + QStringLiteral(" -version"));
        QCOMPARE(calls.at(1), used + QStringLiteral(" -y -f lavfi -i anullsrc=r=44100:cl=mono -t 1 ") + wav);
        QCOMPARE(calls.at(2),
                 used + QStringLiteral(" -y -i %1 -codec:a libmp3lame -qscale:a 2 %2").arg(wav, mp3));
    }

    void conversionFailures_data() {
        QTest::addColumn<bool>("createsInput");
        QTest::addColumn<QStringList>("expected"); // after the header; {wav} stands for the input's path
        const QByteArray longText(650, 'x');
        QTest::newRow("input not created")
            << false
            << QStringList{QStringLiteral("  ❌ Impossible de créer le fichier test: ") + QString(200, 'x')};
        QTest::newRow("conversion failed") << true
                                           << QStringList{QStringLiteral("  ✅ Fichier test créé: {wav}"),
                                                          QStringLiteral("  ❌ Conversion échouée:"),
                                                          QStringLiteral("  ") + QString(500, 'x')};
    }
    void conversionFailures() {
        QFETCH(bool, createsInput);
        QFETCH(QStringList, expected);
        Fixture fixture(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        fixture.temp.writeFile(QStringLiteral("Halvorn/data/ffmpeg/ffmpeg"),
                               failingFFmpeg(createsInput, QByteArray(650, 'x')), true);
        const QStringList lines = fixture.diagnose();
        expected.replaceInStrings(QStringLiteral("{wav}"),
                                  fixture.tempDir + QStringLiteral("/test_halvorn.wav"));
        QCOMPARE(section(lines, kConversionHeader), QStringList{kConversionHeader} + expected);
        QCOMPARE(lines.last(), QStringLiteral("\n=== Fin du diagnostic ==="));
    }

    void ytDlpOfTheEngineWithItsDownloadTest() {
        Fixture fixture(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        fixture.runtime->manifest().backendTag = QStringLiteral("v1.0.0");
        const QString ytDlp =
            fixture.installedTool(QStringLiteral("Halvorn/backends/v1.0.0/.venv/bin/yt-dlp"), kFakeYtDlp);
        const QStringList lines = fixture.diagnose();
        QStringList expected{kYtDlpHeader,
                             QStringLiteral("  ✅ ") + ytDlp,
                             QStringLiteral("  ❌ ") + fixture.config.systemYtDlpCandidates.at(0),
                             QStringLiteral("  ❌ ") + fixture.config.systemYtDlpCandidates.at(1),
                             QStringLiteral("  which yt-dlp → ❌ introuvable"),
                             QStringLiteral("  version: 2025.01.15"),
                             QStringLiteral("  Test téléchargement YouTube (vidéo courte)…"),
                             QStringLiteral("  Sortie yt-dlp:")};
        const QStringList arguments{"--no-playlist",
                                    "--format",
                                    "bestaudio[ext=m4a]/bestaudio/best",
                                    "--output",
                                    fixture.tempDir + QStringLiteral("/yt_test_halvorn.%(ext)s"),
                                    "--extractor-args",
                                    "youtube:player_client=ios,web",
                                    "--max-filesize",
                                    "10m",
                                    "--no-part",
                                    fixture.config.testVideoURL,
                                    "ERROR: unreachable"};
        for (const QString& argument : arguments)
            expected.append(QStringLiteral("    ") + argument);
        QCOMPARE(section(lines, kYtDlpHeader), expected);
        QCOMPARE(section(lines, kComponentsHeader).at(1), QStringLiteral("  Backend actif : v1.0.0 → ") +
                                                              fixture.temp.root() +
                                                              QStringLiteral("/backends/v1.0.0"));
    }

    void componentsAreRefreshedThenListed() {
        Fixture fixture(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        int refreshes = 0;
        fixture.config.refreshComponents = [&refreshes](PythonRuntimeService& runtime) {
            ++refreshes;
            QList<ComponentInfo> rows = ComponentInfo::initialRows();
            rows[0] = {ComponentID::ffmpeg,
                       QStringLiteral("8.1.2"),
                       QStringLiteral("8.1.2"),
                       {ComponentInfo::State::Kind::ok, {}}};
            rows[3] = {ComponentID::uv,
                       std::nullopt,
                       QStringLiteral("0.5.0"),
                       {ComponentInfo::State::Kind::missing, {}}};
            rows[6] = {ComponentID::backend,
                       QStringLiteral("v1.0.0"),
                       std::nullopt,
                       {ComponentInfo::State::Kind::ok, {}}};
            rows[7] = {ComponentID::ytdlp, QStringLiteral("2024.1.1"), QStringLiteral("2025.2.2"),
                       ComponentInfo::State::failed(QStringLiteral("échec"))};
            runtime.setComponents(rows);
            return noWait();
        };
        const QStringList rows = section(fixture.diagnose(), kComponentsHeader).mid(4);
        QCOMPARE(refreshes, 1);
        QCOMPARE(rows, (QStringList{QStringLiteral("  ✅ FFmpeg + ffprobe: 8.1.2 (dernière : 8.1.2)"),
                                    QStringLiteral("  ⚠️ Chromaprint (fpcalc): —"),
                                    QStringLiteral("  ⚠️ QuickJS: —"),
                                    QStringLiteral("  ⚠️ uv: — (dernière : 0.5.0)"),
                                    QStringLiteral("  ⚠️ Python: —"),
                                    QStringLiteral("  ⚠️ Outils de compilation: —"),
                                    QStringLiteral("  ✅ Moteur Halvorn: v1.0.0"),
                                    QStringLiteral("  ⚠️ yt-dlp: 2024.1.1 (dernière : 2025.2.2)"),
                                    QStringLiteral("  ⚠️ Modèles IA: —")}));
    }

    void backendLogTail_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QStringList>("expected");
        QByteArray hundred;
        QStringList lastThirty;
        for (int i = 1; i <= 100; ++i) {
            hundred += "line " + QByteArray::number(i) + (i % 3 == 0 ? " \t\n" : "\n");
            hundred += i % 2 == 0 ? "\n" : " \t \n";
            if (i > 70)
                lastThirty.append(
                    QStringLiteral("  line %1%2").arg(i).arg(i % 3 == 0 ? QStringLiteral(" \t") : QString()));
        }
        QTest::newRow("100 lines with blank ones") << hundred << lastThirty;
        QTest::newRow("fewer than 30")
            << QByteArray("\n  first\n\nsecond") << QStringList{"    first", "  second"};
        QTest::newRow("empty") << QByteArray() << QStringList{};
        QTest::newRow("not UTF-8") << QByteArray("ok\n\xff\xfe\n") << QStringList{"  (pas de log backend)"};
    }
    void backendLogTail() {
        QFETCH(QByteArray, contents);
        QFETCH(QStringList, expected);
        Fixture fixture(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        fixture.temp.writeFile(QStringLiteral("Halvorn/backend.log"), contents);
        QCOMPARE(section(fixture.diagnose(), kLogHeader), QStringList{kLogHeader} + expected);
    }

    void engineHealth_data() {
        QTest::addColumn<QByteArray>("health");
        QTest::addColumn<QStringList>("expected"); // {engine} stands for the address
        QTest::newRow("complete") << QByteArray(
                                         R"({"status":"ok","version":"2.0.1","ffmpeg_configured":true,)"
                                         R"("demucs_device":"cuda"})")
                                  << QStringList{"  ✅ {engine} → moteur Halvorn 2.0.1",
                                                 "     ffmpeg configuré : oui · Demucs : cuda"};
        QTest::newRow("bare, loading")
            << QByteArray(R"({"status":"loading"})")
            << QStringList{"  ✅ {engine} → moteur Halvorn ?", "     ffmpeg configuré : non · Demucs : ?"};
        QTest::newRow("ffmpeg not configured")
            << QByteArray(R"({"status":"ok","ffmpeg_configured":false,"demucs_device":"cpu"})")
            << QStringList{"  ✅ {engine} → moteur Halvorn ?", "     ffmpeg configuré : non · Demucs : cpu"};
        QTest::newRow("unreadable health")
            << QByteArray("[]") << QStringList{"  ❌ {engine} → NON ACCESSIBLE"};
    }
    void engineHealth() {
        QFETCH(QByteArray, health);
        QFETCH(QStringList, expected);
        TestHttpServer engine;
        engine.route("GET", "/api/health", TestHttpServer::Response::json(200, health));
        Fixture fixture(engine.baseUrl());
        const QStringList lines = fixture.diagnose();
        expected.replaceInStrings(QStringLiteral("{engine}"), engine.baseUrl().toString());
        QCOMPARE(section(lines, kEngineHeader), QStringList{kEngineHeader} + expected);
        QCOMPARE(lines.last(), QStringLiteral("\n=== Fin du diagnostic ==="));
    }

    void engineTestWithTheEngineStopped() {
        Fixture fixture(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort())));
        const std::unique_ptr<DiagnosticReport> report = fixture.report();
        QVERIFY(!QCoro::waitFor(report->runEngineTest()));
        QCOMPARE(fixture.appended,
                 (QStringList{QStringLiteral("=== Test YouTube Backend ===\n"),
                              QStringLiteral("POST /api/jobs url=http://127.0.0.1:9/video\n"),
                              QStringLiteral("❌ Backend inaccessible")}));
        fixture.checkCopies(*report);
        QVERIFY(fixture.sleeps.isEmpty());
    }

    void engineTestWithoutAJobId_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("engine error") << 500 << QByteArray(R"({"detail":"boom"})");
        QTest::newRow("number") << 200 << QByteArray(R"({"job_id":12})");
        QTest::newRow("not JSON") << 200 << QByteArray("créé");
        QTest::newRow("array") << 200 << QByteArray(R"([{"job_id":"abc"}])");
    }
    void engineTestWithoutAJobId() {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        TestHttpServer engine;
        engine.route("POST", "/api/jobs", TestHttpServer::Response::json(status, body));
        Fixture fixture(engine.baseUrl());
        const std::unique_ptr<DiagnosticReport> report = fixture.report();
        QVERIFY(!QCoro::waitFor(report->runEngineTest()));
        QCOMPARE(fixture.appended.mid(2), (QStringList{QStringLiteral("Réponse: ") + QString::fromUtf8(body),
                                                       QStringLiteral("❌ Pas de job_id")}));
        QVERIFY(!report->running());
        QVERIFY(fixture.sleeps.isEmpty());
    }

    void engineTestPolling_data() {
        // What the job answers from each elapsed time on (the last one holds), and the seconds shown.
        QTest::addColumn<QList<QByteArray>>("answers");
        QTest::addColumn<QList<int>>("shown");
        QList<int> all;
        for (int i = 1; i <= 15; ++i)
            all.append(2 * i);
        QTest::newRow("done after 8 s")
            << QList<QByteArray>{"processing", "processing", "processing", "done"} << QList<int>{2, 4, 6, 8};
        QTest::newRow("error after 4 s") << QList<QByteArray>{"queued", "error"} << QList<int>{2, 4};
        QTest::newRow("never ends") << QList<QByteArray>{"processing"} << all;
        QTest::newRow("dropped poll skipped")
            << QList<QByteArray>{"processing", "drop", "done"} << QList<int>{2, 6};
        QTest::newRow("undecodable answer skipped") << QList<QByteArray>{"binary", "done"} << QList<int>{4};
    }
    void engineTestPolling() {
        QFETCH(QList<QByteArray>, answers);
        QFETCH(QList<int>, shown);
        TestHttpServer engine;
        engine.route("POST", "/api/jobs",
                     TestHttpServer::Response::json(200, R"({"job_id":"abc","status":"queued"})"));
        Fixture fixture(engine.baseUrl());
        engine.route("GET", "/api/jobs/abc", [&](const TestHttpServer::Request&) {
            const qsizetype at = std::clamp<qsizetype>(fixture.clockMs / 2000 - 1, 0, answers.size() - 1);
            const QByteArray answer = answers.at(at);
            if (answer == "binary")
                return TestHttpServer::Response::text(200, "\xff\xfe\"done\"");
            TestHttpServer::Response response = TestHttpServer::Response::json(200, jobBody(answer));
            response.drop = answer == "drop";
            return response;
        });
        const std::unique_ptr<DiagnosticReport> report = fixture.report();
        QVERIFY(QCoro::waitFor(report->runEngineTest()));

        QStringList expected{QStringLiteral("=== Test YouTube Backend ===\n"),
                             QStringLiteral("POST /api/jobs url=http://127.0.0.1:9/video\n"),
                             QStringLiteral(R"(Réponse: {"job_id":"abc","status":"queued"})"),
                             QStringLiteral("\nJob: abc — attente 30s…")};
        for (const int seconds : shown) {
            const QByteArray answer = answers.at(std::min<qsizetype>(seconds / 2 - 1, answers.size() - 1));
            expected.append(QStringLiteral("[%1s] ").arg(seconds) + QString::fromUtf8(jobBody(answer)));
        }
        expected.append(QStringLiteral("\n=== Fin du test ==="));
        QCOMPARE(fixture.appended, expected);
        fixture.checkCopies(*report);
        const int polls = shown.last() / 2;
        QCOMPARE(fixture.sleeps, QList<qint64>(polls, 2000));
        QCOMPARE(engine.requestCount("/api/jobs/abc"), polls);

        const TestHttpServer::Request creation = engine.requests().first();
        QCOMPARE(creation.headers.value("content-type"), QByteArray("application/json"));
        const QByteArray request =
            "{\"url\":\"" + fixture.config.testVideoURL.toUtf8() + "\",\"stems\":[\"vocals\"]}";
        QCOMPARE(creation.body, request);
    }

    void pollLineShowsThe300FirstCharactersButStopsOnTheWholeBody() {
        TestHttpServer engine;
        engine.route("POST", "/api/jobs", TestHttpServer::Response::json(200, R"({"job_id":"j 1"})"));
        const QByteArray body =
            "{\"pad\":\"" + QString(400, QChar(0xE9)).toUtf8() + "\",\"status\":\"done\"}";
        engine.route("GET", "/api/jobs/j%201", TestHttpServer::Response::json(200, body));
        Fixture fixture(engine.baseUrl());
        const std::unique_ptr<DiagnosticReport> report = fixture.report();
        QVERIFY(QCoro::waitFor(report->runEngineTest()));
        QCOMPARE(fixture.appended.mid(3),
                 (QStringList{QStringLiteral("\nJob: j 1 — attente 30s…"),
                              QStringLiteral("[2s] ") + QString::fromUtf8(body).left(300),
                              QStringLiteral("\n=== Fin du test ===")}));
    }

    void aSecondActionDoesNothingWhileOneRuns() {
        TestHttpServer engine;
        engine.route("POST", "/api/jobs", TestHttpServer::Response::json(200, R"({"job_id":"abc"})"));
        engine.route("GET", "/api/jobs/abc", TestHttpServer::Response::json(200, jobBody("done")));
        Fixture fixture(engine.baseUrl());
        DiagnosticReport* running = nullptr;
        bool runningDuringTheWait = false;
        fixture.config.sleep = [&](std::chrono::milliseconds) {
            runningDuringTheWait = running->running();
            QCoro::waitFor(running->runFullDiagnostic());
            return noWait();
        };
        const std::unique_ptr<DiagnosticReport> report = fixture.report();
        running = report.get();
        QVERIFY(QCoro::waitFor(report->runEngineTest()));
        QVERIFY(runningDuringTheWait);
        QCOMPARE(fixture.appended.first(), QStringLiteral("=== Test YouTube Backend ===\n"));
        QCOMPARE(fixture.appended.size(), 6);
        QVERIFY(fixture.appended.at(4).startsWith(QStringLiteral("[2s] ")));
        fixture.checkCopies(*report);
    }
};

QTEST_GUILESS_MAIN(DiagnosticReportTest)
#include "DiagnosticReportTest.moc"
