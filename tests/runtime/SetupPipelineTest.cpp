#include "TestRuntime.h"
#include "platform/SettingsStore.h"
#include "runtime/SetupStep.h"
#include "support/ReadOnlyFolder.h"
#include "support/ReleaseMirror.h"
#include "support/TaskError.h"

#include <QtTest>

using TestSupport::errorOf;

namespace {

struct Report {
    QString title;
    QString detail;
    double fraction = 0;
    bool operator==(const Report& other) const {
        return title == other.title && detail == other.detail && qFuzzyCompare(fraction, other.fraction);
    }
};

struct SetupRun {
    QList<Report> reports;
    std::optional<QString> error;
    int completions = 0;
    bool returnedAtOnce = false;
    QString log; // what the run added to the runtime log

    // The reports of the pipeline itself, without the installers' detail lines.
    QList<Report> stepReports() const {
        static const QList<double> detailFractions{0.05, 0.12, 0.16, 0.20, 0.27, 0.307, 0.45, 0.72, 0.85};
        QList<Report> steps;
        for (const Report& report : reports)
            if (!std::any_of(detailFractions.begin(), detailFractions.end(),
                             [&report](double f) { return qFuzzyCompare(f, report.fraction); }))
                steps.append(report);
        return steps;
    }
    QStringList details(const QString& title) const {
        QStringList found;
        for (const Report& report : reports)
            if (report.title == title)
                found.append(report.detail);
        return found;
    }
};

SetupRun runSetup(PythonRuntimeService& runtime) {
    SetupRun run;
    const qsizetype logBefore = runtime.setupLog().size();
    bool done = false;
    runtime.runSetup(
        [&run](const QString& title, const QString& detail, double fraction) {
            run.reports.append({title, detail, fraction});
        },
        [&run, &done](const std::optional<QString>& error) {
            run.error = error;
            ++run.completions;
            done = true;
        });
    run.returnedAtOnce = !done && run.reports.isEmpty();
    TestSupport::waitUntil([&done] { return done; }, 280000);
    QCoreApplication::processEvents(); // a second completion would arrive now
    run.log = runtime.setupLog().mid(logBefore);
    return run;
}

const QString noFFmpeg =
    QStringLiteral("FFmpeg n'a pas pu être téléchargé.\nVérifiez votre connexion internet, ou "
                   "installez-le avec : sudo apt install ffmpeg");
const QString noTag =
    QStringLiteral("Impossible de déterminer la dernière version de Halvorn (GitHub inaccessible).");
const QString checking = QStringLiteral("Vérification…");
const QString ready = QStringLiteral("✓ Prêt");

} // namespace

// The first-run setup from a clean install root to a warmed-up engine, and its failures, against the offline
// mirror (or no network at all) with stand-in system programs.
class SetupPipelineTest : public QObject {
    Q_OBJECT

    std::unique_ptr<ReleaseMirror> m_mirror;

    static QString bin(const TempInstallRoot& temp) { return temp.path() + QStringLiteral("/bin"); }

    ToolSources mirrorSources() const {
        ToolSources sources = ToolSources::fromEnvironment(m_mirror->environment());
        sources.platform = QStringLiteral("linux-x86_64");
        return sources;
    }

private Q_SLOTS:
    void initTestCase() {
        m_mirror = std::make_unique<ReleaseMirror>(
            QStringList{QStringLiteral("--engine-tag"), QStringLiteral("v1.0.0")});
        QVERIFY(m_mirror->isRunning());
    }

    void theTenSteps() {
        const QList<SetupStep>& steps = SetupStep::all();
        QCOMPARE(steps.size(), 10);
        QCOMPARE(steps.first().icon, QStringLiteral("waveform"));
        QCOMPARE(steps[5].detail, QStringLiteral("Optionnel — voix lead / chœurs (administrateur)"));
        QCOMPARE(steps.last().title, QStringLiteral("Démarrage"));
        QCOMPARE(SetupStep::indexOf(QStringLiteral("Moteur Halvorn")), 6);
        QCOMPARE(SetupStep::indexOf(QStringLiteral("Autre")), -1);
    }

    void hasPreviousInstall_data() {
        QTest::addColumn<QString>("file"); // under the install root; empty: nothing
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<bool>("executable");
        QTest::addColumn<bool>("previous");
        QTest::newRow("nothing") << QString() << QByteArray() << false << false;
        QTest::newRow("recorded engine")
            << "components.json" << QByteArray(R"({"backendTag": "v1.0.0"})") << false << true;
        QTest::newRow("manifest without engine")
            << "components.json" << QByteArray(R"({"qjsVersion": "0.16.2"})") << false << false;
        QTest::newRow("engines folder") << "backends/v0.9.0/pyproject.toml" << QByteArray() << false << true;
        QTest::newRow("uv") << "uv/uv" << QByteArray("#!/bin/sh\n") << true << true;
        QTest::newRow("uv not executable") << "uv/uv" << QByteArray("#!/bin/sh\n") << false << false;
    }
    void hasPreviousInstall() {
        QFETCH(QString, file);
        QFETCH(QByteArray, contents);
        QFETCH(bool, executable);
        QFETCH(bool, previous);
        TempInstallRoot temp;
        if (!file.isEmpty())
            temp.writeFile(QStringLiteral("Halvorn/") + file, contents, executable);
        auto runtime = TestRuntime::runtimeIn(temp, TestRuntime::unreachableSources(),
                                              TestRuntime::standInTools(bin(temp)));
        QCOMPARE(runtime->hasPreviousInstall(), previous);
    }

    void anInstallRootThatCannotBeCreated() {
        TempInstallRoot temp;
        auto runtime = TestRuntime::runtimeIn(temp, TestRuntime::unreachableSources(),
                                              TestRuntime::standInTools(bin(temp)));
        ReadOnlyFolder readOnly(temp.path());
        if (!readOnly.isEffective())
            QSKIP("the folder still accepts new entries here");
        const SetupRun run = runSetup(*runtime);
        const QString message =
            QStringLiteral("Impossible de créer le dossier d'installation %1").arg(temp.root());
        QCOMPARE(run.error, message);
        QCOMPARE(run.reports, QList<Report>());
        QVERIFY(run.log.contains(QStringLiteral("❌ ") + message + QLatin1Char('\n')));
        QVERIFY(!runtime->isBusy());
    }

    void aRunningOperationRefusesTheSetup() {
        TempInstallRoot temp;
        auto runtime = TestRuntime::runtimeIn(temp, TestRuntime::unreachableSources(),
                                              TestRuntime::standInTools(bin(temp)));
        QVERIFY(runtime->tryBeginOperation());
        const SetupRun run = runSetup(*runtime);
        QCOMPARE(run.error, QStringLiteral("⏳ Une opération est déjà en cours"));
        QCOMPARE(run.reports, QList<Report>());
        QVERIFY(runtime->isBusy()); // the other operation still holds it
        runtime->endOperation();
    }

    void noNetworkAndNothingInstalledStopsAtFFmpeg() {
        TempInstallRoot temp;
        auto runtime = TestRuntime::runtimeIn(temp, TestRuntime::unreachableSources(),
                                              TestRuntime::standInTools(bin(temp)));
        const SetupRun run = runSetup(*runtime);
        QVERIFY(run.returnedAtOnce);
        QCOMPARE(run.completions, 1);
        QCOMPARE(run.error, noFFmpeg);
        for (const Report& report : run.reports)
            QCOMPARE(report.title, QStringLiteral("FFmpeg"));
        QCOMPARE(run.reports.first(), (Report{QStringLiteral("FFmpeg"), checking, 0.02}));
        QVERIFY(run.log.contains(QStringLiteral("[FFmpeg] Vérification…\n")));
        QVERIFY(run.log.endsWith(QStringLiteral("❌ ") + noFFmpeg + QLatin1Char('\n')));
        QVERIFY(!runtime->isBusy());
        QCOMPARE(runtime->components().first().state.kind, ComponentInfo::State::Kind::missing);
    }

    void noNetworkWithASystemFFmpegStopsAtTheEngineAndRemembersACancelledDialog() {
        TempInstallRoot temp;
        QCOMPARE(errorOf(TestRuntime::runtimeIn(temp, mirrorSources(), TestRuntime::standInTools(bin(temp)))
                             ->installUV([](const QString&) {})),
                 QString());
        const QStringList ffmpeg{temp.writeFile(QStringLiteral("usr/local/bin/ffmpeg"), "#!/bin/sh\n", true)};
        const QStringList ffprobe{
            temp.writeFile(QStringLiteral("usr/local/bin/ffprobe"), "#!/bin/sh\n", true)};
        const QString asked = bin(temp) + QStringLiteral("/asked");
        temp.writeFile(QStringLiteral("bin/apt-get"), "#!/bin/sh\n", true);
        temp.writeFile(QStringLiteral("bin/pkexec"),
                       QStringLiteral("#!/bin/sh\ntouch '%1'\nexit 126\n").arg(asked).toUtf8(), true);
        SettingsStore(temp.settingsFile()).setInstallCompilerTools(true);
        auto runtime = TestRuntime::runtimeIn(temp, TestRuntime::unreachableSources(),
                                              TestRuntime::standInTools(bin(temp)), ffmpeg, ffprobe);

        const SetupRun first = runSetup(*runtime);
        QCOMPARE(first.error, noTag);
        QVERIFY(QFileInfo::exists(asked));
        QVERIFY(first.details(QStringLiteral("FFmpeg"))
                    .contains(QStringLiteral("✅ FFmpeg système utilisé : ") + ffmpeg.first()));
        QVERIFY(first.log.contains(
            QStringLiteral("⚠️ fpcalc non installé (identification des morceaux désactivée) : ")));
        QVERIFY(first.log.contains(
            QStringLiteral("⚠️ QuickJS non installé (certaines vidéos YouTube peuvent échouer) : ")));
        QVERIFY(first.log.contains(QStringLiteral(
            "Annulé — séparation voix lead / chœurs désactivée (réactivable dans Réglages › Composants)\n")));
        QVERIFY(first.log.endsWith(QStringLiteral("❌ ") + noTag + QLatin1Char('\n')));
        QCOMPARE(first.stepReports().mid(10),
                 (QList<Report>{{QStringLiteral("Outils de compilation"), checking, 0.305},
                                {QStringLiteral("Outils de compilation"),
                                 QStringLiteral("Non installés (optionnel)"), 0.31},
                                {QStringLiteral("Moteur Halvorn"),
                                 QStringLiteral("Recherche de la dernière version…"), 0.31}}));
        QVERIFY(SettingsStore(temp.settingsFile()).compilerToolsDeclined());

        // The next run does not ask again.
        QVERIFY(QFile::remove(asked));
        const SetupRun second = runSetup(*runtime);
        QCOMPARE(second.error, noTag);
        QVERIFY(!QFileInfo::exists(asked));
        QVERIFY(second.log.contains(QStringLiteral("Outils de compilation absents (non demandés)\n")));
        QVERIFY(!runtime->isBusy());
    }

    void fromACleanRootToAWarmEngineThenAgainAndOffline() {
        TempInstallRoot temp;
        auto runtime = TestRuntime::runtimeIn(temp, mirrorSources(), TestRuntime::standInTools(bin(temp)));

        // First run: everything is installed; no compiler, so without the optional packages.
        const SetupRun first = runSetup(*runtime);
        QCOMPARE(first.error, std::nullopt);
        QCOMPARE(first.completions, 1);
        QVERIFY(first.returnedAtOnce);
        const QList<Report> steps{
            {QStringLiteral("FFmpeg"), checking, 0.02},
            {QStringLiteral("FFmpeg"), ready, 0.10},
            {QStringLiteral("Outils audio"), checking, 0.11},
            {QStringLiteral("Outils audio"), ready, 0.14},
            {QStringLiteral("Moteur JavaScript"), checking, 0.15},
            {QStringLiteral("Moteur JavaScript"), ready, 0.18},
            {QStringLiteral("uv"), checking, 0.19},
            {QStringLiteral("uv"), ready, 0.24},
            {QStringLiteral("Python"), QStringLiteral("Installation de Python 3.12…"), 0.25},
            {QStringLiteral("Python"), ready, 0.30},
            {QStringLiteral("Outils de compilation"), checking, 0.305},
            {QStringLiteral("Outils de compilation"), QStringLiteral("Non installés (optionnel)"), 0.31},
            {QStringLiteral("Moteur Halvorn"), QStringLiteral("Recherche de la dernière version…"), 0.31},
            {QStringLiteral("Moteur Halvorn"), QStringLiteral("✓ Halvorn v1.0.0 installé"), 0.70},
            {QStringLiteral("yt-dlp"), QStringLiteral("Mise à jour…"), 0.71},
            {QStringLiteral("yt-dlp"), ready, 0.74},
            {QStringLiteral("Modèles IA"), QStringLiteral("Téléchargement (peut prendre plusieurs minutes)…"),
             0.75},
            {QStringLiteral("Modèles IA"), QStringLiteral("✓ Prêts"), 0.95},
            {QStringLiteral("Démarrage"), QStringLiteral("Configuration terminée ✓"), 0.97}};
        QCOMPARE(first.stepReports(), steps);
        QVERIFY(first.reports.contains(
            Report{QStringLiteral("FFmpeg"), QStringLiteral("Téléchargement FFmpeg 8.1.2 (x86_64)…"), 0.05}));
        QVERIFY(first.reports.contains(Report{QStringLiteral("Moteur Halvorn"),
                                              QStringLiteral("Téléchargement de Halvorn v1.0.0…"), 0.45}));
        QVERIFY(first.reports.contains(
            Report{QStringLiteral("Modèles IA"), QStringLiteral("WARMUP_OK separation"), 0.85}));
        QVERIFY(first.reports.contains(
            Report{QStringLiteral("yt-dlp"), QStringLiteral(" + yt-dlp==2025.10.22"), 0.72}));
        for (qsizetype i = 1; i < first.reports.size(); ++i)
            QVERIFY(first.reports[i].fraction >= first.reports[i - 1].fraction);
        for (const Report& report : first.reports)
            QVERIFY2(first.log.contains(QStringLiteral("[%1] %2\n").arg(report.title, report.detail)),
                     qPrintable(report.detail));
        const InstallManifest& manifest = runtime->manifest();
        QCOMPARE(manifest.backendTag, QStringLiteral("v1.0.0"));
        QCOMPARE(manifest.ffmpegVersion, QStringLiteral("8.1.2"));
        QCOMPARE(manifest.skippedPackages,
                 (QStringList{QStringLiteral("diffq"), QStringLiteral("audio-separator")}));
        QCOMPARE(manifest.modelsWarmedTag, QStringLiteral("v1.0.0"));
        QCOMPARE(manifest.modelsFailed, QStringList());
        QVERIFY(manifest.lastUpdateCheck);
        QVERIFY(!runtime->isBusy());
        const ComponentInfo engine = runtime->components().at(static_cast<qsizetype>(ComponentID::backend));
        QCOMPARE(engine.installed, QStringLiteral("v1.0.0 (sans séparation voix lead / chœurs)"));
        QCOMPARE(engine.latest, QStringLiteral("v1.0.0"));

        // Second run: the tools are skipped; a compiler appeared, so the engine is rebuilt with everything.
        temp.writeFile(QStringLiteral("bin/cc"), "#!/bin/sh\necho 'cc 12'\n", true);
        const SetupRun second = runSetup(*runtime);
        QCOMPARE(second.error, std::nullopt);
        QCOMPARE(second.details(QStringLiteral("FFmpeg")), (QStringList{checking, ready}));
        QCOMPARE(second.details(QStringLiteral("Outils audio")), (QStringList{checking, ready}));
        QCOMPARE(second.details(QStringLiteral("Moteur JavaScript")), (QStringList{checking, ready}));
        QCOMPARE(second.details(QStringLiteral("uv")), (QStringList{checking, ready}));
        QVERIFY(second.reports.contains(
            Report{QStringLiteral("Outils de compilation"), QStringLiteral("✓ Prêts"), 0.31}));
        QVERIFY(second.log.contains(
            QStringLiteral("🔄 Réinstallation du moteur avec la séparation voix lead / chœurs…\n")));
        QVERIFY(second.details(QStringLiteral("Moteur Halvorn"))
                    .contains(QStringLiteral("Téléchargement de Halvorn v1.0.0…")));
        QCOMPARE(runtime->manifest().skippedPackages, std::nullopt);
        QCOMPARE(second.stepReports().last(), steps.last());

        // Third run without any network: the installed tag is kept and the pass completes.
        auto offline = TestRuntime::runtimeIn(temp, TestRuntime::unreachableSources(),
                                              TestRuntime::standInTools(bin(temp)));
        const SetupRun third = runSetup(*offline);
        QCOMPARE(third.error, std::nullopt);
        QVERIFY(third.reports.contains(
            Report{QStringLiteral("Moteur Halvorn"), QStringLiteral("v1.0.0 déjà installé"), 0.45}));
        QCOMPARE(third.stepReports().last(), steps.last());
        QVERIFY(!third.log.contains(QStringLiteral("⚠️")));
        QVERIFY(offline->isBackendInstalled(QStringLiteral("v1.0.0")));
    }
};

QTEST_GUILESS_MAIN(SetupPipelineTest)
#include "SetupPipelineTest.moc"
