#include "runtime/PythonRuntimeService.h"
#include "runtime/ToolRunner.h"
#include "support/ReleaseMirror.h"
#include "support/TaskError.h"
#include "support/TempInstallRoot.h"

#include <QtTest>
#include <memory>

using TestSupport::errorOf;

// The mirror's stand-in uv, installed the way Marlune installs uv, doing what the engine install asks of it.
class StandInUvTest : public QObject {
    Q_OBJECT

    std::unique_ptr<ReleaseMirror> m_mirror;
    std::unique_ptr<TempInstallRoot> m_temp;
    std::unique_ptr<PythonRuntimeService> m_runtime;

    QString project() const { return m_temp->path() + QStringLiteral("/engine"); }
    QString venvPython() const { return project() + QStringLiteral("/.venv/bin/python"); }

    QCoro::Task<QString> uv(QStringList arguments) {
        ToolRunOptions options;
        options.workingDirectory = project();
        options.environment = m_runtime->uvEnvironment();
        const QString uv = m_runtime->layout().uvPath();
        const QString output = co_await runTool(uv, arguments, options);
        co_return output;
    }

    QString python(const QString& code) {
        const QStringList arguments{QStringLiteral("-c"), code};
        ToolRunOptions options;
        options.workingDirectory = project();
        return QCoro::waitFor(runTool(venvPython(), arguments, options)).trimmed();
    }

    static QStringList sync(const QStringList& skipped = {}) {
        QStringList arguments{"sync", "--frozen", "--python", "3.12"};
        for (const QString& package : skipped)
            arguments << QStringLiteral("--no-install-package") << package;
        return arguments;
    }

private Q_SLOTS:
    void initTestCase() {
        m_mirror = std::make_unique<ReleaseMirror>();
        QVERIFY(m_mirror->isRunning());
    }

    void init() {
        m_temp = std::make_unique<TempInstallRoot>();
        ToolSources sources = ToolSources::fromEnvironment(m_mirror->environment());
        sources.platform = QStringLiteral("linux-x86_64");
        m_runtime = std::make_unique<PythonRuntimeService>(
            PythonRuntimeService::Config{{m_temp->root(), m_temp->documents(), m_temp->home(), {}, {}},
                                         m_temp->settingsFile(),
                                         QProcessEnvironment::systemEnvironment(),
                                         m_temp->home(),
                                         QStringLiteral("u"),
                                         1,
                                         sources});
        QCOMPARE(errorOf(m_runtime->installUV([](const QString&) {})), QString());
        m_temp->writeFile(QStringLiteral("engine/pyproject.toml"), "[project]\nname = \"engine\"\n");
        m_temp->writeFile(QStringLiteral("engine/uv.lock"), "version = 1\n");
        m_temp->writeFile(QStringLiteral("engine/app/__init__.py"), "NAME = 'engine app'\n");
        m_mirror->setUvControl("{}");
    }

    void syncCreatesAnEnvironmentSeeingTheSystemPackages() {
        QCOMPARE(errorOf(uv(sync())), QString());
        QVERIFY(InstallLayout::isExecutable(venvPython()));
        QCOMPARE(python(QStringLiteral("import app, json; print(app.NAME)")), QStringLiteral("engine app"));
        QCOMPARE(python(QStringLiteral("import sys; print(sys.prefix != sys.base_prefix)")),
                 QStringLiteral("True"));
        QCOMPARE(python(QStringLiteral("import numpy; print('numpy')")), QStringLiteral("numpy"));
        QCOMPARE(errorOf(uv(sync())), QString()); // again over the existing environment
    }

    void aPackageBuildFailsOnRequestUnlessLeftOut() {
        m_mirror->setUvControl(R"({"failBuild": ["diffq"]})");
        QCOMPARE(
            errorOf(uv(sync())),
            QStringLiteral("uv (code 1)\nUsing CPython 3.12 (stand-in: /usr/bin/python3)\nCreating virtual "
                           "environment at: .venv\n  × Failed to build `diffq`\n  ╰─▶ The build backend "
                           "returned an error (requested by the mirror)"));
        const QStringList skipped{QStringLiteral("diffq"), QStringLiteral("audio-separator")};
        QCOMPARE(errorOf(uv(sync(skipped))), QString());
        const QList<QByteArray> calls = m_mirror->uvCalls();
        const QJsonObject last = QJsonDocument::fromJson(calls.last()).object();
        QCOMPARE(last.value("argv").toVariant().toStringList(), sync(skipped));
        QCOMPARE(QDir(last.value("cwd").toString()).canonicalPath(), QDir(project()).canonicalPath());
    }

    void aFrozenSyncNeedsTheLockFile() {
        QVERIFY(QFile::remove(project() + QStringLiteral("/uv.lock")));
        QVERIFY(errorOf(uv(sync()))
                    .startsWith(QStringLiteral("uv (code 2)\nerror: Unable to find lockfile at `uv.lock`")));
        QVERIFY(!QFileInfo::exists(venvPython()));
    }

    void pipInstallsYtDlpIntoTheGivenInterpreter() {
        QCOMPARE(errorOf(uv(sync())), QString());
        const QStringList install{"pip", "install", "--python", venvPython(), "--upgrade", "yt-dlp"};
        QCOMPARE(QCoro::waitFor(uv(install)), QStringLiteral("Installed 1 package\n + yt-dlp==2025.10.22\n"));
        QCOMPARE(python(QStringLiteral("import yt_dlp.version as v; print(v.__version__)")),
                 QStringLiteral("2025.10.22"));
        m_mirror->setUvControl(R"({"failPip": true})");
        QCOMPARE(errorOf(uv(install)),
                 QStringLiteral("uv (code 1)\nerror: Failed to fetch yt-dlp (requested by the mirror)"));
    }

    void unknownCommandsAreRefused() {
        const QStringList arguments{QStringLiteral("lock")};
        QCOMPARE(errorOf(uv(arguments)),
                 QStringLiteral("uv (code 2)\nerror: unrecognized subcommand 'lock'"));
    }
};

QTEST_GUILESS_MAIN(StandInUvTest)
#include "StandInUvTest.moc"
