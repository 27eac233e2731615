#include "TestRuntime.h"
#include "platform/SettingsStore.h"
#include "support/ReleaseMirror.h"
#include "support/TaskError.h"

#include <QSignalSpy>
#include <QtTest>

using TestSupport::errorOf;
using Kind = ComponentInfo::State::Kind;

namespace {
const QString restartLine = QStringLiteral("✅ Mises à jour terminées — redémarrez le backend pour appliquer");
const QString busyLine = QStringLiteral("⏳ Une opération est déjà en cours");

ComponentInfo rowOf(const PythonRuntimeService& runtime, ComponentID id) {
    return runtime.components().at(static_cast<qsizetype>(id));
}
} // namespace

// The components list and the update-everything operation over one install, against the offline mirror,
// with an engine running from the install for part of it.
class ComponentUpdatesTest : public QObject {
    Q_OBJECT

    std::unique_ptr<ReleaseMirror> m_mirror;
    std::unique_ptr<TempInstallRoot> m_temp;
    std::unique_ptr<PythonRuntimeService> m_runtime;
    quint16 m_port = 0;

    QString bin() const { return m_temp->path() + QStringLiteral("/bin"); }

    ToolSources mirrorSources() const {
        ToolSources sources = ToolSources::fromEnvironment(m_mirror->environment());
        sources.platform = QStringLiteral("linux-x86_64");
        return sources;
    }

    static PythonRuntimeService::Report collect(QStringList* lines) {
        return [lines](const QString& line) { lines->append(line); };
    }

private Q_SLOTS:
    void initTestCase() {
        m_mirror = std::make_unique<ReleaseMirror>(
            QStringList{QStringLiteral("--engine-tag"), QStringLiteral("v1.2.0"),
                        QStringLiteral("--engine-tag"), QStringLiteral("v1.3.0")});
        QVERIFY(m_mirror->isRunning());
        m_temp = std::make_unique<TempInstallRoot>();
        // No compiler yet; the administrator launcher "installs" one; a package manager exists.
        m_temp->writeFile(QStringLiteral("bin/apt-get"), "#!/bin/sh\n", true);
        m_temp->writeFile(
            QStringLiteral("bin/pkexec"),
            QStringLiteral("#!/bin/sh\nprintf '#!/bin/sh\\necho \"cc (built) 12\"\\n' > '%1/cc'\n"
                           "chmod +x '%1/cc'\n")
                .arg(bin())
                .toUtf8(),
            true);
        m_runtime = TestRuntime::runtimeIn(*m_temp, mirrorSources(), TestRuntime::standInTools(bin()));
        m_port = TestSupport::freePort();
    }

    void cleanupTestCase() {
        if (m_runtime)
            QCoro::waitFor(m_runtime->stopBackend());
    }

    void operationsAreExclusive() {
        QVERIFY(!m_runtime->isBusy());
        QVERIFY(m_runtime->tryBeginOperation());
        QVERIFY(m_runtime->isBusy());
        QVERIFY(!m_runtime->tryBeginOperation());
        m_runtime->endOperation();
        QVERIFY(!m_runtime->isBusy());
        m_runtime->setBusy(true);
        QVERIFY(!m_runtime->tryBeginOperation());
        m_runtime->setBusy(false);
        QVERIFY(m_runtime->tryBeginOperation());
        m_runtime->endOperation();
    }

    void aFreshInstallIsAllMissing() {
        QList<Kind> backendStates;
        connect(m_runtime.get(), &PythonRuntimeService::componentsChanged, this, [this, &backendStates] {
            const Kind state = rowOf(*m_runtime, ComponentID::backend).state.kind;
            if (backendStates.isEmpty() || backendStates.last() != state)
                backendStates.append(state);
        });
        QCoro::waitFor(m_runtime->refreshComponents(false));
        disconnect(m_runtime.get(), &PythonRuntimeService::componentsChanged, this, nullptr);
        QCOMPARE(backendStates, (QList<Kind>{Kind::unknown, Kind::checking, Kind::missing}));
        for (const ComponentInfo& row : m_runtime->components()) {
            QCOMPARE(row.state.kind, Kind::missing);
            QCOMPARE(row.installed, std::nullopt);
        }
        QCOMPARE(rowOf(*m_runtime, ComponentID::ffmpeg).latest, QStringLiteral("8.1.2"));
        QCOMPARE(rowOf(*m_runtime, ComponentID::python).latest, QStringLiteral("3.12"));
        QCOMPARE(rowOf(*m_runtime, ComponentID::backend).latest, std::nullopt);
    }

    void anOlderRunningEngineAsksForARestart() {
        QCOMPARE(errorOf(m_runtime->installUV([](const QString&) {})), QString());
        QCOMPARE(errorOf(m_runtime->installBackend(QStringLiteral("v1.2.0"), false, {})), QString());
        QCoro::waitFor(m_runtime->startBackend(m_port));
        QVERIFY(m_runtime->isRunning());
        QVERIFY(TestSupport::waitUntil([this] { return TestSupport::isListening(m_port); }, 90000));

        // Enabling the compiler tools cannot complete the engine while it runs.
        QStringList enabling;
        QVERIFY(QCoro::waitFor(m_runtime->enableCompilerTools(collect(&enabling))));
        QCOMPARE(enabling,
                 (QStringList{
                     QStringLiteral("Installation des outils de compilation (mot de passe administrateur)…"),
                     QStringLiteral(
                         "ℹ️ Le moteur sera complété à la prochaine mise à jour (moteur en cours "
                         "d'exécution)")}));
        QVERIFY(SettingsStore(m_temp->settingsFile()).installCompilerTools());
        QVERIFY(m_runtime->manifest().skippedPackages);
        QCOMPARE(errorOf(m_runtime->installBackend(QStringLiteral("v1.2.0"), true, {})),
                 QStringLiteral("Arrêtez le backend avant de réinstaller la version en cours (v1.2.0)"));

        // The API is rate-limited: the release page's redirect names the latest tag.
        m_mirror->setRules(R"([{"prefix": "/api/", "status": 403}])");
        m_mirror->clearRequests();
        QStringList first;
        QStringList second;
        QCoro::Task<UpdateOutcome> running = m_runtime->updateAll(collect(&first));
        QVERIFY(m_runtime->isBusy());
        const UpdateOutcome refused = QCoro::waitFor(m_runtime->updateAll(collect(&second)));
        QVERIFY(!refused.ran);
        QCOMPARE(second, QStringList{busyLine});
        const UpdateOutcome outcome = QCoro::waitFor(std::move(running));
        m_mirror->setRules("[]");

        QVERIFY(outcome.ran);
        QVERIFY(!outcome.failed());
        QCOMPARE(outcome.components.size(), 9);
        for (const UpdateOutcome::Component& component : outcome.components)
            QVERIFY2(component.state.kind == Kind::ok,
                     qPrintable(Components::displayName(component.id) + QLatin1Char(' ') +
                                component.state.message));
        QVERIFY(outcome.needsRestart);
        QVERIFY(m_runtime->needsRestart());
        QVERIFY(first.contains(QStringLiteral("🔄 Moteur Halvorn v1.3.0")));
        QVERIFY(first.contains(QStringLiteral("🔄 Modèles IA…")));
        QCOMPARE(first.last(), restartLine);
        QVERIFY(!first.contains(busyLine));
        QVERIFY(m_runtime->setupLog().contains(restartLine));
        QVERIFY(m_mirror->requests().contains(
            QStringLiteral("HEAD /github/halvornapp/halvorn/releases/latest Marlune")));

        QCOMPARE(m_runtime->manifest().backendTag, QStringLiteral("v1.3.0"));
        QCOMPARE(m_runtime->manifest().skippedPackages, std::nullopt); // built with the compiler this time
        QCOMPARE(m_runtime->manifest().modelsWarmedTag, QStringLiteral("v1.3.0"));
        QVERIFY(m_runtime->manifest().lastUpdateCheck);
        QVERIFY(qAbs(m_runtime->manifest().lastUpdateCheck->secsTo(QDateTime::currentDateTimeUtc())) < 600);
        QVERIFY(m_runtime->isRunningTag(QStringLiteral("v1.2.0")));
        QVERIFY(!m_runtime->isBusy());
        const ComponentInfo engine = rowOf(*m_runtime, ComponentID::backend);
        QCOMPARE(engine.installed, QStringLiteral("v1.3.0"));
        QCOMPARE(engine.latest, QStringLiteral("v1.3.0"));
        QCOMPARE(engine.state.kind, Kind::ok);
    }

    void anOfflineRefreshUsesTheInstalledDataOnly() {
        m_mirror->clearRequests();
        QCoro::waitFor(m_runtime->refreshComponents(false));
        QCOMPARE(m_mirror->requests(), QStringList());
        const QList<std::pair<ComponentID, QString>> installed{
            {ComponentID::ffmpeg, QStringLiteral("8.1.2")},
            {ComponentID::fpcalc, QStringLiteral("1.6.1")},
            {ComponentID::jsRuntime, QStringLiteral("0.16.2")},
            {ComponentID::uv, QStringLiteral("0.9.5")},
            {ComponentID::compiler, QStringLiteral("cc (built) 12")},
            {ComponentID::backend, QStringLiteral("v1.3.0")},
            {ComponentID::ytdlp, QStringLiteral("2025.10.22")},
            {ComponentID::models, QStringLiteral("préchargés")}};
        for (const auto& [id, text] : installed) {
            const ComponentInfo row = rowOf(*m_runtime, id);
            QCOMPARE(row.installed, text);
            QCOMPARE(row.state.kind, Kind::ok);
        }
        QCOMPARE(rowOf(*m_runtime, ComponentID::uv).latest, std::nullopt);
        QCOMPARE(rowOf(*m_runtime, ComponentID::backend).latest, std::nullopt);
        const ComponentInfo python = rowOf(*m_runtime, ComponentID::python);
        QVERIFY(python.installed->startsWith(QStringLiteral("Python 3.")));
        QCOMPARE(python.state.kind,
                 python.installed->startsWith(QStringLiteral("Python 3.12")) ? Kind::ok : Kind::outdated);
    }

    void aComponentFailureStaysInItsRow() {
        auto offline = TestRuntime::runtimeIn(*m_temp, TestRuntime::unreachableSources(),
                                              TestRuntime::standInTools(bin()));
        QStringList lines;
        const UpdateOutcome outcome = QCoro::waitFor(offline->updateAll(collect(&lines)));
        const QString noTag =
            QStringLiteral("Impossible de déterminer la dernière version de Halvorn (GitHub inaccessible).");
        QVERIFY(outcome.failed());
        for (const UpdateOutcome::Component& component : outcome.components)
            QCOMPARE(component.state, component.id == ComponentID::backend
                                          ? ComponentInfo::State::failed(noTag)
                                          : ComponentInfo::State{Kind::ok});
        QVERIFY(lines.contains(QStringLiteral("❌ Moteur Halvorn : ") + noTag));
        QCOMPARE(lines.last(), QStringLiteral("✅ Mises à jour terminées"));
        QVERIFY(!offline->isBusy());
    }

    void newerReleasesAndIncompleteInstallsShow() {
        m_mirror->replaceServed(QStringLiteral("/github/halvornapp/halvorn/latest"), "v1.4.0");
        m_runtime->manifest().skippedPackages =
            QStringList{QStringLiteral("diffq"), QStringLiteral("audio-separator")};
        m_runtime->manifest().modelsFailed =
            QStringList{QStringLiteral("separation"), QStringLiteral("analysis")};
        QCoro::waitFor(m_runtime->refreshComponents(true));
        m_mirror->replaceServed(QStringLiteral("/github/halvornapp/halvorn/latest"), "");
        const ComponentInfo engine = rowOf(*m_runtime, ComponentID::backend);
        QCOMPARE(engine.installed, QStringLiteral("v1.3.0 (sans séparation voix lead / chœurs)"));
        QCOMPARE(engine.latest, QStringLiteral("v1.4.0"));
        QCOMPARE(engine.state.kind, Kind::outdated);
        const ComponentInfo models = rowOf(*m_runtime, ComponentID::models);
        QCOMPARE(models.installed, QStringLiteral("partiels (separation, analysis)"));
        QCOMPARE(models.state.kind, Kind::outdated);
        QCOMPARE(rowOf(*m_runtime, ComponentID::ytdlp).latest, QStringLiteral("2025.10.22"));
        QCOMPARE(rowOf(*m_runtime, ComponentID::uv).latest, QStringLiteral("0.9.5"));
    }
};

QTEST_GUILESS_MAIN(ComponentUpdatesTest)
#include "ComponentUpdatesTest.moc"
