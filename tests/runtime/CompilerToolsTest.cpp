#include "TestRuntime.h"
#include "platform/SettingsStore.h"
#include "runtime/AdminCommandCancelled.h"
#include "support/TaskError.h"

#include <QtTest>

using TestSupport::errorOf;

namespace {
const QString unavailable = QStringLiteral(
    "⚠️ Outils de compilation indisponibles — séparation voix lead / chœurs désactivée");
const QString cancelled = QStringLiteral(
    "Annulé — séparation voix lead / chœurs désactivée (réactivable dans Réglages › Composants)");
const QString installCommand = QStringLiteral("apt-get install -y build-essential");

QByteArray contentsOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Whether the administrator task threw AdminCommandCancelled.
QCoro::Task<bool> wasCancelled(QCoro::Task<> task) {
    bool result = false;
    try {
        co_await std::move(task);
    } catch (const AdminCommandCancelled&) {
        result = true;
    } catch (const SetupError&) {
    }
    co_return result;
}
} // namespace

// The C compiler probe, the build tools' install through the administrator launcher, and its outcomes.
// Every system program is a stand-in script in a temporary folder: nothing real is installed.
class CompilerToolsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TempInstallRoot> m_temp;
    QStringList m_reports;

    QString bin() const { return m_temp->path() + QStringLiteral("/bin"); }
    QString launcherArguments() const { return bin() + QStringLiteral("/pkexec-arguments"); }

    std::unique_ptr<PythonRuntimeService> runtime(const SystemTools& tools) const {
        return TestRuntime::runtimeIn(*m_temp, TestRuntime::unreachableSources(), tools);
    }
    std::unique_ptr<PythonRuntimeService> runtime() const {
        return runtime(TestRuntime::standInTools(bin()));
    }

    PythonRuntimeService::Report reporter() {
        return [this](const QString& line) { m_reports.append(line); };
    }

    void writeCompiler(const QByteArray& script) const {
        m_temp->writeFile(QStringLiteral("bin/cc"), script, true);
    }
    // A launcher that records its arguments, exits with `status`, and on success leaves a compiler behind.
    void writeLauncher(int status) const {
        m_temp->writeFile(QStringLiteral("bin/pkexec"),
                          QStringLiteral("#!/bin/sh\n"
                                         "printf '%s\\n' \"$@\" > '%1'\n"
                                         "if [ %2 = 0 ]; then\n"
                                         "  printf '#!/bin/sh\\necho \"cc (built) 12\"\\n' > '%3/cc'\n"
                                         "  chmod +x '%3/cc'\n"
                                         "fi\n"
                                         "echo 'launcher says goodbye'\n"
                                         "exit %2\n")
                              .arg(launcherArguments())
                              .arg(status)
                              .arg(bin())
                              .toUtf8(),
                          true);
    }
    void writePackageManager() const {
        m_temp->writeFile(QStringLiteral("bin/apt-get"), "#!/bin/sh\n", true);
    }

    QStringList launcherCall() const {
        return QString::fromUtf8(contentsOf(launcherArguments()))
            .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private Q_SLOTS:
    void init() {
        m_temp = std::make_unique<TempInstallRoot>();
        QVERIFY(QDir().mkpath(bin()));
        m_reports.clear();
    }

    void theCompilerProbe_data() {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<std::optional<QString>>("description");
        QTest::newRow("answers") << QByteArray("#!/bin/sh\necho 'cc (Stand-in) 12.2.0'\necho 'Copyright'\n")
                                 << std::optional<QString>(QStringLiteral("cc (Stand-in) 12.2.0"));
        QTest::newRow("answers nothing")
            << QByteArray("#!/bin/sh\n") << std::optional<QString>(QStringLiteral("cc"));
        QTest::newRow("fails") << QByteArray("#!/bin/sh\necho 'licence not accepted'\nexit 69\n")
                               << std::optional<QString>();
        QTest::newRow("absent") << QByteArray() << std::optional<QString>();
    }
    void theCompilerProbe() {
        QFETCH(QByteArray, script);
        QFETCH(std::optional<QString>, description);
        if (!script.isEmpty())
            writeCompiler(script);
        auto service = runtime();
        QCOMPARE(QCoro::waitFor(service->compilerDescription()), description);
        QCOMPARE(QCoro::waitFor(service->hasCompiler()), description.has_value());
    }

    void aCompilerNameIsLookedUpOnTheCleanPath() {
        m_temp->writeFile(QStringLiteral("bin/marlune-test-cc"), "#!/bin/sh\necho 'found on PATH'\n", true);
        SystemTools tools = TestRuntime::standInTools(bin());
        tools.compiler = QStringLiteral("marlune-test-cc");
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(bin()) + ":/usr/bin:/bin");
        auto found = runtime(tools);
        qputenv("PATH", "/usr/bin:/bin");
        auto notFound = runtime(tools);
        qputenv("PATH", path);
        QCOMPARE(QCoro::waitFor(found->compilerDescription()), QStringLiteral("found on PATH"));
        QCOMPARE(QCoro::waitFor(notFound->compilerDescription()), std::nullopt);
    }

    void aPresentCompilerNeedsNothing() {
        writeCompiler("#!/bin/sh\necho cc\n");
        writeLauncher(0);
        auto service = runtime();
        QVERIFY(QCoro::waitFor(service->ensureCompilerTools(true, reporter())));
        QCOMPARE(m_reports, QStringList());
        QVERIFY(!QFileInfo::exists(launcherArguments()));
    }

    void withoutConsentNothingIsInstalled() {
        writeLauncher(0);
        writePackageManager();
        auto service = runtime();
        QVERIFY(!QCoro::waitFor(service->ensureCompilerTools(false, reporter())));
        QCOMPARE(service->setupLog(), QStringLiteral("Outils de compilation absents (non demandés)\n"));
        QVERIFY(!QFileInfo::exists(launcherArguments()));
    }

    void theBuildToolsAreInstalledThroughTheLauncher() {
        writeLauncher(0);
        writePackageManager();
        auto service = runtime();
        QVERIFY(QCoro::waitFor(service->ensureCompilerTools(true, reporter())));
        QCOMPARE(m_reports, QStringList{QStringLiteral(
                                "Installation des outils de compilation (mot de passe administrateur)…")});
        QCOMPARE(launcherCall(),
                 (QStringList{QStringLiteral("/bin/sh"), QStringLiteral("-c"), installCommand}));
        QCOMPARE(
            service->setupLog(),
            QStringLiteral("Marlune doit installer les outils de compilation (build-essential) pour compiler "
                           "un composant audio optionnel.\n✅ Outils de compilation installés\n"));
        QCOMPARE(QCoro::waitFor(service->compilerDescription()), QStringLiteral("cc (built) 12"));
    }

    void aDismissedDialogIsRemembered_data() {
        QTest::addColumn<int>("status");
        QTest::newRow("dismissed") << 126;
        QTest::newRow("not authorised") << 127;
    }
    void aDismissedDialogIsRemembered() {
        QFETCH(int, status);
        writeLauncher(status);
        writePackageManager();
        {
            SettingsStore settings(m_temp->settingsFile());
            settings.setInstallCompilerTools(true);
        }
        auto service = runtime();
        QVERIFY(!QCoro::waitFor(service->ensureCompilerTools(true, reporter())));
        QVERIFY2(service->setupLog().endsWith(cancelled + QLatin1Char('\n')),
                 qPrintable(service->setupLog()));
        const SettingsStore settings(m_temp->settingsFile());
        QVERIFY(settings.compilerToolsDeclined());
        QVERIFY(!settings.installCompilerTools());
        QVERIFY(!QFileInfo::exists(bin() + QStringLiteral("/cc")));
    }

    void aFailedInstallOnlyTurnsTheFeatureOff() {
        writeLauncher(1);
        writePackageManager();
        auto service = runtime();
        QVERIFY(!QCoro::waitFor(service->ensureCompilerTools(true, reporter())));
        QVERIFY2(service->setupLog().endsWith(unavailable + QLatin1Char('\n')),
                 qPrintable(service->setupLog()));
        const SettingsStore settings(m_temp->settingsFile());
        QVERIFY(!settings.contains(QStringLiteral("compilerToolsDeclined")));
    }

    void withoutAPackageManagerNothingIsAsked() {
        writeLauncher(0);
        auto service = runtime();
        QVERIFY(!QCoro::waitFor(service->ensureCompilerTools(true, reporter())));
        QCOMPARE(service->setupLog(), unavailable + QLatin1Char('\n'));
        QCOMPARE(m_reports, QStringList());
        QVERIFY(!QFileInfo::exists(launcherArguments()));
    }

    void anAdministratorCommandReachesTheShellUnchanged() {
        writeLauncher(0);
        auto service = runtime();
        const QString command = QStringLiteral("printf '%s' \"a \\\"quoted\\\" \\\\ path\" > /dev/null");
        const QString prompt = QStringLiteral("Le \"prompt\" \\ ici");
        QCOMPARE(errorOf(service->runAdminCommand(command, prompt)), QString());
        QCOMPARE(launcherCall(), (QStringList{QStringLiteral("/bin/sh"), QStringLiteral("-c"), command}));
        QCOMPARE(service->setupLog(), prompt + QLatin1Char('\n'));
    }

    void administratorFailures_data() {
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("isCancellation");
        QTest::newRow("dismissed") << 126 << true;
        QTest::newRow("not authorised") << 127 << true;
        QTest::newRow("command failed") << 1 << false;
        QTest::newRow("launcher missing") << -1 << false;
    }
    void administratorFailures() {
        QFETCH(int, status);
        QFETCH(bool, isCancellation);
        if (status >= 0)
            writeLauncher(status);
        auto service = runtime();
        const QString message = errorOf(service->runAdminCommand(installCommand, QStringLiteral("?")));
        const QString expected =
            status >= 0 ? QStringLiteral("Commande administrateur non exécutée : pkexec (code %1)\n"
                                         "launcher says goodbye")
                              .arg(status)
                        : QStringLiteral("Commande administrateur non exécutée : Impossible de "
                                         "lancer pkexec : ");
        QVERIFY2(message.startsWith(expected), qPrintable(message));
        QCOMPARE(QCoro::waitFor(wasCancelled(service->runAdminCommand(installCommand, QStringLiteral("?")))),
                 isCancellation);
    }
};

QTEST_GUILESS_MAIN(CompilerToolsTest)
#include "CompilerToolsTest.moc"
