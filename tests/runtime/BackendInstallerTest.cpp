#include "TestRuntime.h"
#include "support/ReleaseMirror.h"
#include "support/TaskError.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

using TestSupport::errorOf;

namespace {
const QString archives = QStringLiteral("/github/halvornapp/halvorn/archive/refs/tags/");
const QStringList optional{QStringLiteral("diffq"), QStringLiteral("audio-separator")};
const QString preparing =
    QStringLiteral("Installation des dépendances Python (plusieurs minutes la première fois)…");
const QString noCompiler = QStringLiteral(
    "ℹ️ Aucun compilateur utilisable : la séparation voix lead / chœurs sera désactivée");
const QString diffqFailed = QStringLiteral(
    "⚠️ Compilation de diffq impossible — installation sans la séparation voix lead / chœurs");

QStringList syncArguments(const QStringList& skipped) {
    QStringList arguments{"sync", "--frozen", "--python", "3.12"};
    for (const QString& package : skipped)
        arguments << QStringLiteral("--no-install-package") << package;
    return arguments;
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
}
} // namespace

// The engine's install from the source archive of a tag, against the offline mirror and its stand-in uv.
class BackendInstallerTest : public QObject {
    Q_OBJECT

    std::unique_ptr<ReleaseMirror> m_mirror;
    std::unique_ptr<TempInstallRoot> m_temp;
    std::unique_ptr<PythonRuntimeService> m_runtime;
    QStringList m_reports;
    qsizetype m_uvCallsBefore = 0;

    QString bin() const { return m_temp->path() + QStringLiteral("/bin"); }
    QString tempDir() const { return m_temp->path() + QStringLiteral("/tmp"); }

    ToolSources mirrorSources() const {
        ToolSources sources = ToolSources::fromEnvironment(m_mirror->environment());
        sources.platform = QStringLiteral("linux-x86_64");
        return sources;
    }

    PythonRuntimeService::Report reporter() {
        return [this](const QString& line) { m_reports.append(line); };
    }

    QString install(const QString& tag, bool force = false) {
        return errorOf(m_runtime->installBackend(tag, force, reporter()));
    }

    void giveACompiler() const {
        m_temp->writeFile(QStringLiteral("bin/cc"), "#!/bin/sh\necho 'cc 12'\n", true);
    }

    // The stand-in uv's calls since the test began, as JSON objects.
    QList<QJsonObject> uvCalls() const {
        QList<QJsonObject> calls;
        const QList<QByteArray> all = m_mirror->uvCalls();
        for (qsizetype i = m_uvCallsBefore; i < all.size(); ++i)
            calls.append(QJsonDocument::fromJson(all[i]).object());
        return calls;
    }
    QList<QJsonObject> syncCalls() const {
        QList<QJsonObject> syncs;
        for (const QJsonObject& call : uvCalls())
            if (call.value(QStringLiteral("argv")).toArray().first().toString() == QLatin1String("sync"))
                syncs.append(call);
        return syncs;
    }
    static QStringList argv(const QJsonObject& call) {
        return call.value(QStringLiteral("argv")).toVariant().toStringList();
    }

    // Serves a small engine source archive for `tag`: `files` (relative path → contents) in one top folder.
    void serveArchive(const QString& tag, const QMap<QString, QByteArray>& files) const {
        const QString source = m_temp->path() + QStringLiteral("/archive-") + tag;
        for (auto file = files.begin(); file != files.end(); ++file)
            m_temp->writeFile(QStringLiteral("archive-%1/halvorn-%1/%2").arg(tag, file.key()), file.value());
        const QString output = source + QStringLiteral(".tar.gz");
        QProcess tar;
        tar.start(QStringLiteral("/usr/bin/tar"), {QStringLiteral("czf"), output, QStringLiteral("-C"),
                                                   source, QStringLiteral("halvorn-") + tag});
        QVERIFY(tar.waitForFinished(10000) && tar.exitCode() == 0);
        QFile archive(output);
        QVERIFY(archive.open(QIODevice::ReadOnly));
        m_mirror->replaceServed(archives + tag + QStringLiteral(".tar.gz"), archive.readAll());
    }
    static QMap<QString, QByteArray> smallEngine(const QByteArray& main = "app = object()\n") {
        return {{QStringLiteral("pyproject.toml"), "[project]\nname = \"halvorn\"\nversion = \"0.0.0\"\n"},
                {QStringLiteral("uv.lock"), "version = 1\n"},
                {QStringLiteral("app/__init__.py"), ""},
                {QStringLiteral("app/main.py"), main}};
    }

    int archiveDownloads(const QString& tag) const {
        return int(m_mirror->requests().count(QStringLiteral("GET %1%2.tar.gz Marlune").arg(archives, tag)));
    }

    void verifyNotInstalled(const QString& tag) const {
        QVERIFY(!m_runtime->isBackendInstalled(tag));
        QVERIFY(!QFileInfo::exists(m_runtime->layout().readyMarker(tag)));
        QCOMPARE(m_runtime->manifest().backendTag, std::nullopt);
    }

private Q_SLOTS:
    void initTestCase() {
        m_mirror = std::make_unique<ReleaseMirror>(
            QStringList{QStringLiteral("--engine-tag"), QStringLiteral("v1.0.0"),
                        QStringLiteral("--engine-tag"), QStringLiteral("v2.0.1")});
        QVERIFY(m_mirror->isRunning());
    }

    void init() {
        m_temp = std::make_unique<TempInstallRoot>();
        QVERIFY(QDir().mkpath(bin()));
        QVERIFY(QDir().mkpath(tempDir()));
        qputenv("TMPDIR", QFile::encodeName(tempDir()));
        m_mirror->setUvControl("{}");
        m_mirror->clearRequests();
        m_runtime = TestRuntime::runtimeIn(*m_temp, mirrorSources(), TestRuntime::standInTools(bin()));
        QCOMPARE(errorOf(m_runtime->installUV([](const QString&) {})), QString());
        m_reports.clear();
        m_uvCallsBefore = m_mirror->uvCalls().size();
    }

    void cleanup() {
        QCOMPARE(entriesOf(tempDir()), QStringList()); // the archive is gone, whatever happened
        m_runtime.reset();
        qunsetenv("TMPDIR");
    }

    void withoutACompilerTheOptionalPackagesAreLeftOut() {
        QCOMPARE(install(QStringLiteral("v1.0.0")), QString());
        QCOMPARE(m_reports,
                 (QStringList{QStringLiteral("Téléchargement de Halvorn v1.0.0…"), preparing, noCompiler}));
        const QList<QJsonObject> syncs = syncCalls();
        QCOMPARE(syncs.size(), 1);
        QCOMPARE(argv(syncs[0]), syncArguments(optional));
        const QString folder = m_runtime->layout().backendDir(QStringLiteral("v1.0.0"));
        QCOMPARE(QDir(syncs[0].value(QStringLiteral("cwd")).toString()).canonicalPath(),
                 QDir(folder).canonicalPath());
        const QJsonObject environment = syncs[0].value(QStringLiteral("env")).toObject();
        QCOMPARE(environment.value(QStringLiteral("SETUPTOOLS_SCM_PRETEND_VERSION")).toString(),
                 QStringLiteral("1.0.0"));
        QCOMPARE(environment.value(QStringLiteral("UV_PYTHON_PREFERENCE")).toString(),
                 QStringLiteral("only-managed"));

        QVERIFY(m_runtime->isBackendInstalled(QStringLiteral("v1.0.0")));
        QVERIFY(QFileInfo::exists(folder + QStringLiteral("/app/main.py")));
        QCOMPARE(m_runtime->manifest().backendTag, QStringLiteral("v1.0.0"));
        QCOMPARE(m_runtime->manifest().skippedPackages, optional);
        ManifestStore saved(m_runtime->layout());
        saved.load();
        QCOMPARE(saved.manifest().skippedPackages, optional);
        QVERIFY(
            m_runtime->setupLog().contains(QStringLiteral("Resolved the project's packages; skipped: diffq, "
                                                          "audio-separator\n")));
    }

    void anInstalledTagIsNotDownloadedAgain() {
        QCOMPARE(install(QStringLiteral("v1.0.0")), QString());
        // A lost manifest: the tag is recorded again, nothing is downloaded.
        m_runtime->manifest().backendTag.reset();
        m_reports.clear();
        QCOMPARE(QCoro::waitFor(m_runtime->installBackend(QStringLiteral("v1.0.0"), false, reporter())),
                 false);
        QCOMPARE(m_reports, QStringList{QStringLiteral("v1.0.0 déjà installé")});
        QCOMPARE(archiveDownloads(QStringLiteral("v1.0.0")), 1);
        QCOMPARE(m_runtime->manifest().backendTag, QStringLiteral("v1.0.0"));
        ManifestStore saved(m_runtime->layout());
        saved.load();
        QCOMPARE(saved.manifest().backendTag, QStringLiteral("v1.0.0"));
    }

    void ytDlpIsUpgradedInTheEngineEnvironment() {
        QCOMPARE(QCoro::waitFor(m_runtime->ytDlpVersion()), std::nullopt); // no engine yet
        QVERIFY(errorOf(m_runtime->updateYtDlp()).startsWith(QStringLiteral("Backend non installé")));
        QCOMPARE(install(QStringLiteral("v1.0.0")), QString());
        QStringList lines;
        QCOMPARE(errorOf(m_runtime->updateYtDlp([&lines](const QString& line) { lines.append(line); })),
                 QString());
        QCOMPARE(lines, (QStringList{QStringLiteral("Installed 1 package"),
                                     QStringLiteral(" + yt-dlp==2025.10.22")}));
        QCOMPARE(QCoro::waitFor(m_runtime->ytDlpVersion()), QStringLiteral("2025.10.22"));
        const QJsonObject pip = uvCalls().last();
        QCOMPARE(argv(pip),
                 (QStringList{QStringLiteral("pip"), QStringLiteral("install"), QStringLiteral("--python"),
                              m_runtime->layout().backendPython(QStringLiteral("v1.0.0")),
                              QStringLiteral("--upgrade"), QStringLiteral("yt-dlp")}));
        m_mirror->setUvControl(R"({"failPip": true})");
        QVERIFY(errorOf(m_runtime->updateYtDlp()).startsWith(QStringLiteral("uv (code 1)\n")));
    }

    void aFailedDiffqBuildFallsBackToTheSkipList() {
        giveACompiler();
        m_mirror->setUvControl(R"({"failBuild": ["diffq"]})");
        QCOMPARE(install(QStringLiteral("v2.0.1")), QString());
        QCOMPARE(m_reports,
                 (QStringList{QStringLiteral("Téléchargement de Halvorn v2.0.1…"), preparing, diffqFailed}));
        const QList<QJsonObject> syncs = syncCalls();
        QCOMPARE(syncs.size(), 2);
        QCOMPARE(argv(syncs[0]), syncArguments({}));
        QCOMPARE(argv(syncs[1]), syncArguments(optional));
        for (const QJsonObject& sync : syncs) {
            const QJsonObject environment = sync.value(QStringLiteral("env")).toObject();
            QCOMPARE(environment.value(QStringLiteral("SETUPTOOLS_SCM_PRETEND_VERSION")).toString(),
                     QStringLiteral("2.0.1"));
            QCOMPARE(
                environment.value(QStringLiteral("SETUPTOOLS_SCM_PRETEND_VERSION_FOR_HALVORN")).toString(),
                QStringLiteral("2.0.1"));
        }
        QVERIFY(m_runtime->setupLog().contains(QStringLiteral("  × Failed to build `diffq`\n")));
        QVERIFY(m_runtime->isBackendInstalled(QStringLiteral("v2.0.1")));
        QCOMPARE(m_runtime->manifest().skippedPackages, optional);
    }

    void withACompilerEverythingIsBuiltAndAForcedInstallStartsOver() {
        giveACompiler();
        serveArchive(QStringLiteral("v3.2.0"), smallEngine());
        m_runtime->manifest().skippedPackages = optional; // from an earlier install
        QCOMPARE(install(QStringLiteral("v3.2.0")), QString());
        QCOMPARE(m_reports, (QStringList{QStringLiteral("Téléchargement de Halvorn v3.2.0…"), preparing}));
        QCOMPARE(syncCalls().size(), 1);
        QCOMPARE(argv(syncCalls()[0]), syncArguments({}));
        QCOMPARE(m_runtime->manifest().skippedPackages, std::nullopt);

        const QString leftover =
            m_runtime->layout().backendDir(QStringLiteral("v3.2.0")) + QStringLiteral("/stale");
        m_temp->writeFile(QStringLiteral("Halvorn/backends/v3.2.0/stale"), "old");
        QCOMPARE(QCoro::waitFor(m_runtime->installBackend(QStringLiteral("v3.2.0"), true, reporter())), true);
        QCOMPARE(archiveDownloads(QStringLiteral("v3.2.0")), 2);
        QVERIFY(!QFileInfo::exists(leftover));
        QVERIFY(m_runtime->isBackendInstalled(QStringLiteral("v3.2.0")));
    }

    void brokenArchives_data() {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QByteArray>("served"); // empty: a small engine without uv.lock
        QTest::addColumn<QString>("message");
        QTest::newRow("no lock file") << QStringLiteral("v3.0.0") << QByteArray()
                                      << QStringLiteral("Archive du backend incomplète (uv.lock absent).");
        QTest::newRow("not an archive") << QStringLiteral("v3.0.1") << QByteArray("<html>not found</html>")
                                        << QStringLiteral("Archive du backend illisible : tar (code 2)\n");
        QTest::newRow("unknown tag") << QStringLiteral("v9.9.9") << QByteArray("-")
                                     << QStringLiteral("HTTP 404 pour v9.9.9.tar.gz");
    }
    void brokenArchives() {
        QFETCH(QString, tag);
        QFETCH(QByteArray, served);
        QFETCH(QString, message);
        if (served.isEmpty()) {
            QMap<QString, QByteArray> files = smallEngine();
            files.remove(QStringLiteral("uv.lock"));
            serveArchive(tag, files);
        } else if (served != "-") {
            m_mirror->replaceServed(archives + tag + QStringLiteral(".tar.gz"), served);
        }
        const QString error = install(tag);
        QVERIFY2(error.startsWith(message), qPrintable(error));
        verifyNotInstalled(tag);
        QCOMPARE(syncCalls().size(), 0);
    }

    void anEngineThatDoesNotImportIsNotMarkedReady() {
        giveACompiler();
        serveArchive(QStringLiteral("v3.3.0"), smallEngine("raise RuntimeError('broken engine')\n"));
        const QString error = install(QStringLiteral("v3.3.0"));
        QVERIFY2(error.startsWith(QStringLiteral("Le backend v3.3.0 ne démarre pas : python (code 1)\n")),
                 qPrintable(error));
        QVERIFY(error.contains(QStringLiteral("RuntimeError: broken engine")));
        verifyNotInstalled(QStringLiteral("v3.3.0"));
        QVERIFY(QFileInfo::exists(m_runtime->layout().backendPython(QStringLiteral("v3.3.0"))));
    }

    void aSyncFailingWithoutTheOptionalPackagesFails() {
        giveACompiler();
        serveArchive(QStringLiteral("v3.4.0"), smallEngine());
        m_mirror->setUvControl(R"({"failBuild": ["numpy"]})");
        const QString error = install(QStringLiteral("v3.4.0"));
        QVERIFY2(error.startsWith(QStringLiteral("uv sync a échoué pour v3.4.0 : uv (code 1)\n")),
                 qPrintable(error));
        QVERIFY(error.contains(QStringLiteral("Failed to build `numpy`")));
        QCOMPARE(syncCalls().size(), 2);
        QCOMPARE(m_reports.last(), diffqFailed);
        verifyNotInstalled(QStringLiteral("v3.4.0"));
    }

    void theEngineRepositoryCanBeAnother() {
        QProcessEnvironment environment = m_mirror->environment();
        QCOMPARE(ToolSources::fromEnvironment(environment).engineRepository,
                 QStringLiteral("halvornapp/halvorn"));
        environment.insert(QStringLiteral("MARLUNE_ENGINE_REPO"), QStringLiteral(" someone/fork "));
        ToolSources sources = ToolSources::fromEnvironment(environment);
        QCOMPARE(sources.engineRepository, QStringLiteral("someone/fork"));
        sources.platform = QStringLiteral("linux-x86_64");
        m_runtime = TestRuntime::runtimeIn(*m_temp, sources, TestRuntime::standInTools(bin()));
        QCOMPARE(install(QStringLiteral("v1.0.0")), QStringLiteral("HTTP 404 pour v1.0.0.tar.gz"));
        QVERIFY(m_mirror->requests().contains(
            QStringLiteral("GET /github/someone/fork/archive/refs/tags/v1.0.0.tar.gz Marlune")));
    }
};

QTEST_GUILESS_MAIN(BackendInstallerTest)
#include "BackendInstallerTest.moc"
