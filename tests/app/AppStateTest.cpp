#include "app/AppState.h"
#include "engine_client/BackendService.h"
#include "runtime/PythonRuntimeService.h"
#include "support/TempInstallRoot.h"

#include <QtTest>

namespace {
using Kinds = QList<StemKind>;

QSet<StemKind> setOf(const Kinds& kinds) {
    return QSet<StemKind>(kinds.cbegin(), kinds.cend());
}

struct Fixture {
    TempInstallRoot temp;
    std::unique_ptr<PythonRuntimeService> runtime;
    std::unique_ptr<BackendService> backendService;
    BackendService& backend() { return *backendService; }

    explicit Fixture(bool installed = true, bool withFFprobe = true) {
        QStringList ffmpeg{temp.writeFile(QStringLiteral("sys/ffmpeg"), "x", true)};
        QStringList ffprobe;
        if (withFFprobe)
            ffprobe.append(temp.writeFile(QStringLiteral("sys/ffprobe"), "x", true));
        if (installed) {
            temp.writeFile(QStringLiteral("Halvorn/backends/v1.0.0/.venv/bin/python"), "", true);
            temp.writeFile(QStringLiteral("Halvorn/backends/v1.0.0/.halvorn-ready"), "");
        }
        runtime = std::make_unique<PythonRuntimeService>(
            PythonRuntimeService::Config{{temp.root(), temp.documents(), temp.home(), ffmpeg, ffprobe},
                                         temp.settingsFile(),
                                         {},
                                         temp.home(),
                                         QStringLiteral("u"),
                                         1});
        BackendService::Config config = BackendService::defaultConfig();
        config.baseURL = QUrl(QStringLiteral("http://127.0.0.1:9/"));
        config.cacheRoot = temp.path() + QStringLiteral("/cache");
        config.recordRunningVersion = [this](const std::optional<QString>& v) {
            runtime->setRunningVersion(v);
        };
        backendService = std::make_unique<BackendService>(config);
    }
};
} // namespace

class AppStateTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initialValues() {
        Fixture fixture;
        AppState state(fixture.backend(), *fixture.runtime);
        QCOMPARE(state.screen(), AppScreen::importing);
        QVERIFY(state.isSetupComplete());
        QVERIFY(!state.backendReady());
        QCOMPARE(state.backendPort(), 8000);
        QCOMPARE(state.selectedStems(), setOf(StemKinds::separable()));
        QCOMPARE(state.zoomLevel(), 1.0);
        QVERIFY(!state.currentJob());
        QCOMPARE(state.jobProgress(), JobProgress{});
        QVERIFY(state.libraryJobs().isEmpty());
    }

    void engineInstalledTest_data() {
        QTest::addColumn<bool>("installed");
        QTest::addColumn<bool>("ffprobe");
        QTest::addColumn<bool>("expected");
        QTest::newRow("everything") << true << true << true;
        QTest::newRow("engine folder missing") << false << true << false;
        QTest::newRow("ffprobe missing") << true << false << false;
    }
    void engineInstalledTest() {
        QFETCH(bool, installed);
        QFETCH(bool, ffprobe);
        QFETCH(bool, expected);
        Fixture fixture(installed, ffprobe);
        AppState state(fixture.backend(), *fixture.runtime);
        QCOMPARE(AppState::isEngineInstalled(*fixture.runtime), expected);
        QCOMPARE(state.isSetupComplete(), expected);
        QCOMPARE(state.screen(), expected ? AppScreen::importing : AppScreen::setup);
    }

    void toggleStem() {
        Fixture fixture;
        AppState state(fixture.backend(), *fixture.runtime);
        state.toggleStem(StemKind::drums); // the first tap isolates
        QCOMPARE(state.selectedStems(), setOf({StemKind::drums}));
        state.toggleStem(StemKind::drums); // never empty: back to all six
        QCOMPARE(state.selectedStems(), setOf(StemKinds::separable()));
        state.toggleStem(StemKind::bass);
        state.toggleStem(StemKind::vocals);
        QCOMPARE(state.selectedStems(), setOf({StemKind::bass, StemKind::vocals}));
        QCOMPARE(AppState::orderedStems(state.selectedStems()), (Kinds{StemKind::vocals, StemKind::bass}));
        state.toggleStem(StemKind::bass);
        QCOMPARE(state.selectedStems(), setOf({StemKind::vocals}));
    }

    void resetReturnsToImport() {
        Fixture fixture;
        AppState state(fixture.backend(), *fixture.runtime);
        StemJob job;
        job.id = QStringLiteral("j");
        state.setCurrentJob(job);
        state.setJobProgress(
            JobProgress{QStringLiteral("Terminé"), 100, QString(), true, false, std::nullopt});
        state.setPlaying(true);
        state.setLoopEnabled(true);
        state.setPlayheadPosition(12);
        state.setZoomLevel(4);
        state.setScreen(AppScreen::studio);
        state.reset();
        QVERIFY(!state.currentJob());
        QCOMPARE(state.jobProgress(), JobProgress{});
        QVERIFY(!state.isPlaying() && !state.loopEnabled());
        QCOMPARE(state.playheadPosition(), 0.0);
        QCOMPARE(state.zoomLevel(), 1.0);
        QCOMPARE(state.screen(), AppScreen::importing);
    }

    void errorText_data() {
        QTest::addColumn<QVariant>("error");
        QTest::addColumn<QVariant>("detail");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("distinct detail") << QVariant("E") << QVariant("D") << QVariant("E\nD");
        QTest::newRow("same detail") << QVariant("E") << QVariant("E") << QVariant("E");
        QTest::newRow("empty detail") << QVariant("E") << QVariant("") << QVariant("E");
        QTest::newRow("no detail") << QVariant("E") << QVariant() << QVariant("E");
        QTest::newRow("detail only") << QVariant() << QVariant("D") << QVariant("D");
        QTest::newRow("nothing") << QVariant() << QVariant() << QVariant();
    }
    void errorText() {
        QFETCH(QVariant, error);
        QFETCH(QVariant, detail);
        QFETCH(QVariant, expected);
        StemJob job;
        if (error.isValid())
            job.error = error.toString();
        if (detail.isValid())
            job.errorDetail = detail.toString();
        const auto text = AppState::errorText(job);
        QCOMPARE(text.has_value(), expected.isValid());
        if (text)
            QCOMPARE(*text, expected.toString());
    }
};

QTEST_GUILESS_MAIN(AppStateTest)
#include "AppStateTest.moc"
