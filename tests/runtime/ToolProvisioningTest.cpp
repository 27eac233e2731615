#include "runtime/PythonRuntimeService.h"
#include "runtime/ToolRunner.h"
#include "support/ReleaseMirror.h"
#include "support/TaskError.h"
#include "support/TempInstallRoot.h"
#include "support/TestSupport.h"

#include <QCryptographicHash>
#include <QtTest>
#include <memory>

using TestSupport::errorOf;

namespace {
const QString linux = QStringLiteral("linux-x86_64");
const QString mac = QStringLiteral("macos-arm64");
const QString ffmpegDownloads =
    QStringLiteral("/github/shaka-project/static-ffmpeg-binaries/releases/download/");
const QString linuxFFmpeg = ffmpegDownloads + QStringLiteral("n8.1.2-1/ffmpeg-linux-x64");
const QString macFFmpeg = ffmpegDownloads + QStringLiteral("n8.1.2-1/ffmpeg-osx-arm64");
const QString linuxFpcalc = QStringLiteral(
    "/github/acoustid/chromaprint/releases/download/v1.6.1/chromaprint-fpcalc-1.6.1-linux-x86_64.tar.gz");
const QString uvAsset = QStringLiteral("uv-x86_64-unknown-linux-gnu.tar.gz");
const QString apiLatestUv = QStringLiteral("GET /api/repos/astral-sh/uv/releases/latest Marlune");
const QString noFFmpeg =
    QStringLiteral("FFmpeg n'a pas pu être téléchargé.\nVérifiez votre connexion internet, ou "
                   "installez-le avec : sudo apt install ffmpeg");

QByteArray contentsOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString sha256(const QByteArray& data) {
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
}

QString outputOf(const QString& program, const QString& argument) {
    const QStringList arguments{argument};
    return QCoro::waitFor(runTool(program, arguments)).trimmed();
}
} // namespace

class ToolProvisioningTest : public QObject {
    Q_OBJECT

    std::unique_ptr<ReleaseMirror> m_mirror;
    std::unique_ptr<TempInstallRoot> m_temp;
    QMap<QString, QByteArray> m_originals; // served files changed by the running test
    QStringList m_reports;
    QStringList m_systemFFmpeg;
    QStringList m_systemFFprobe;

    QString tempDir() const { return m_temp->path() + QStringLiteral("/tmp"); }

    ToolSources mirrorSources(const QString& platform) const {
        ToolSources sources = ToolSources::fromEnvironment(m_mirror->environment());
        sources.platform = platform;
        return sources;
    }

    std::unique_ptr<PythonRuntimeService> runtime(const ToolSources& sources) const {
        return std::make_unique<PythonRuntimeService>(PythonRuntimeService::Config{
            {m_temp->root(), m_temp->documents(), m_temp->home(), m_systemFFmpeg, m_systemFFprobe},
            m_temp->settingsFile(),
            QProcessEnvironment::systemEnvironment(),
            m_temp->home(),
            QStringLiteral("u"),
            1,
            sources});
    }

    PythonRuntimeService::Report reporter() {
        return [this](const QString& line) { m_reports.append(line); };
    }

    // Serves `contents` in place of a fixture until the test ends.
    void changeServed(const QString& urlPath, const QByteArray& contents) {
        if (!m_originals.contains(urlPath))
            m_originals.insert(urlPath, contentsOf(m_mirror->servedFile(urlPath)));
        m_mirror->replaceServed(urlPath, contents);
    }

    // Serves `contents` for the row of `tool` and trusts it.
    void serveTrusted(ToolSources& sources, const QString& tool, const QString& urlPath,
                      const QByteArray& contents) {
        changeServed(urlPath, contents);
        FixedDownload row = *sources.row(tool);
        row.sha256 = sha256(contents);
        sources.downloads.put(sources.platform, row);
    }

    void useSystemFFmpeg() {
        m_systemFFmpeg = {m_temp->writeFile(QStringLiteral("usr/local/bin/ffmpeg"), "#!/bin/sh\n", true)};
        m_systemFFprobe = {m_temp->writeFile(QStringLiteral("usr/local/bin/ffprobe"), "#!/bin/sh\n", true)};
    }

    std::optional<QString> savedFFmpegVersion() const {
        ManifestStore store{InstallLayout({m_temp->root(), m_temp->documents(), m_temp->home(), {}, {}})};
        store.load();
        return store.manifest().ffmpegVersion;
    }

private Q_SLOTS:
    void initTestCase() {
        m_mirror = std::make_unique<ReleaseMirror>();
        QVERIFY(m_mirror->isRunning());
    }

    void init() {
        m_temp = std::make_unique<TempInstallRoot>();
        QVERIFY(QDir().mkpath(tempDir()));
        qputenv("TMPDIR", QFile::encodeName(tempDir()));
        m_reports.clear();
        m_systemFFmpeg.clear();
        m_systemFFprobe.clear();
        m_mirror->setRules("[]");
        m_mirror->setUvControl("{}");
        m_mirror->clearRequests();
    }

    void cleanup() {
        // Every download and extraction is gone, whatever the outcome.
        QCOMPARE(entriesOf(tempDir()), QStringList());
        for (auto original = m_originals.begin(); original != m_originals.end(); ++original)
            m_mirror->replaceServed(original.key(), original.value());
        m_originals.clear();
        qunsetenv("TMPDIR");
    }

    void ffmpegFromTheTrustedMirror() {
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installFFmpeg(reporter())), QString());
        QCOMPARE(m_reports,
                 (QStringList{"Téléchargement FFmpeg 8.1.2 (x86_64)…", "✅ FFmpeg 8.1.2 installé"}));
        QCOMPARE(service->manifest().ffmpegVersion, QStringLiteral("8.1.2"));
        QCOMPARE(savedFFmpegVersion(), QStringLiteral("8.1.2"));
        const InstallLayout& layout = service->layout();
        QCOMPARE(contentsOf(layout.ownFFprobe()),
                 contentsOf(m_mirror->servedFile(ffmpegDownloads + "n8.1.2-1/ffprobe-linux-x64")));
        QVERIFY(outputOf(layout.ownFFmpeg(), QStringLiteral("-version"))
                    .startsWith(QStringLiteral("ffmpeg version")));
        QVERIFY(
            m_mirror->requests().contains(QStringLiteral("GET ") + linuxFFmpeg + QStringLiteral(" Marlune")));
    }

    void aChangedByteTriesTheFallbackSite() {
        QByteArray changed = contentsOf(m_mirror->servedFile(macFFmpeg));
        changed[20] = char(changed[20] ^ 1);
        changeServed(macFFmpeg, changed);
        auto service = runtime(mirrorSources(mac));
        QCOMPARE(errorOf(service->installFFmpeg(reporter())), QString());
        QCOMPARE(m_reports, (QStringList{"Téléchargement FFmpeg 8.1.2 (arm64)…",
                                         "⚠️ Source principale indisponible (Somme de contrôle invalide "
                                         "pour ffmpeg) — essai 127.0.0.1",
                                         "✅ FFmpeg 8.1.1 installé (127.0.0.1)"}));
        QCOMPARE(service->manifest().ffmpegVersion, QStringLiteral("8.1.1"));
        QVERIFY(contentsOf(service->layout().ownFFmpeg()).contains("ffmpeg 8.1.1"));
        QVERIFY(contentsOf(service->layout().ownFFprobe()).contains("ffprobe 8.1.1"));
        QVERIFY(m_mirror->requests().contains(
            QStringLiteral("GET /ffmpeg-fallback/ffmpeg/ffprobe-8.1.1.zip Marlune")));
    }

    void aChangedFallbackArchiveIsRefusedToo() {
        changeServed(macFFmpeg, "tampered");
        changeServed(QStringLiteral("/ffmpeg-fallback/ffmpeg/ffmpeg-8.1.1.zip"), "tampered zip");
        auto service = runtime(mirrorSources(mac));
        QCOMPARE(errorOf(service->installFFmpeg(reporter())), noFFmpeg);
        QCOMPARE(m_reports.value(2),
                 QStringLiteral(
                     "⚠️ 127.0.0.1 indisponible (Somme de contrôle invalide pour ffmpeg-8.1.1.zip)"));
        QVERIFY(!QFileInfo::exists(service->layout().ownFFmpeg()));
    }

    void bothSourcesDownWithASystemFFmpeg() {
        useSystemFFmpeg();
        m_mirror->setRules(R"([{"prefix": "/github/shaka-project/", "status": 503},
                               {"prefix": "/ffmpeg-fallback/", "status": 502}])");
        auto service = runtime(mirrorSources(mac));
        QCOMPARE(errorOf(service->installFFmpeg(reporter())), QString());
        QCOMPARE(
            m_reports,
            (QStringList{
                "Téléchargement FFmpeg 8.1.2 (arm64)…",
                "⚠️ Source principale indisponible (HTTP 503 pour ffmpeg-osx-arm64) — essai 127.0.0.1",
                "⚠️ 127.0.0.1 indisponible (HTTP 502 pour ffmpeg-8.1.1.zip)",
                "✅ FFmpeg système utilisé : " + m_systemFFmpeg.first()}));
        QCOMPARE(service->manifest().ffmpegVersion, std::nullopt);
        QCOMPARE(savedFFmpegVersion(), std::nullopt);
    }

    void bothSourcesUnreachableAndNoSystemFFmpeg() {
        ToolSources sources = mirrorSources(mac);
        const QString nowhere = QStringLiteral("http://127.0.0.1:%1").arg(TestSupport::freePort());
        sources.addresses.githubWeb = nowhere;
        sources.addresses.ffmpegFallback = nowhere + QStringLiteral("/builds");
        auto service = runtime(sources);
        QCOMPARE(errorOf(service->installFFmpeg(reporter())), noFFmpeg);
        QCOMPARE(m_reports.size(), 3);
        QVERIFY(m_reports[1].startsWith(QStringLiteral("⚠️ Source principale indisponible (")));
        QVERIFY(m_reports[2].startsWith(QStringLiteral("⚠️ 127.0.0.1 indisponible (")));
        QVERIFY(!QFileInfo::exists(service->layout().ffmpegDir()) ||
                entriesOf(service->layout().ffmpegDir()).isEmpty());
    }

    void unpinnedBuildsAreNeverDownloaded() {
        useSystemFFmpeg();
        ToolSources sources = mirrorSources(linux);
        sources.downloads = FixedDownloads::builtIn(); // no trusted table: the Linux rows are not pinned
        auto service = runtime(sources);
        QCOMPARE(errorOf(service->installFFmpeg(reporter())), QString());
        QCOMPARE(m_reports,
                 (QStringList{
                     "Téléchargement FFmpeg 8.1.2 (x86_64)…",
                     "⚠️ Source principale indisponible (Aucune version vérifiée de ffmpeg-linux-x64 "
                     "pour cette plateforme (linux-x86_64))",
                     "✅ FFmpeg système utilisé : " + m_systemFFmpeg.first()}));
        QCOMPARE(errorOf(service->installFpcalc(reporter())),
                 QStringLiteral(
                     "Aucune version vérifiée de chromaprint-fpcalc-1.6.1-linux-x86_64.tar.gz pour cette "
                     "plateforme (linux-x86_64)"));
        QCOMPARE(m_mirror->requests(), QStringList());
    }

    void anFFmpegThatDoesNotRunLeavesTheOldOne() {
        ToolSources sources = mirrorSources(linux);
        serveTrusted(sources, QStringLiteral("ffmpeg"), linuxFFmpeg,
                     "#!/bin/sh\necho 'wrong machine'\nexit 126\n");
        const QByteArray old = "#!/bin/sh\necho 'ffmpeg version 7'\n";
        const QString own = m_temp->writeFile(QStringLiteral("Halvorn/data/ffmpeg/ffmpeg"), old, true);
        m_temp->writeFile(QStringLiteral("Halvorn/data/ffmpeg/ffprobe"), old, true);
        auto service = runtime(sources);
        const std::optional<QString> recorded = service->manifest().ffmpegVersion; // rebuilt from the disk
        QCOMPARE(errorOf(service->installFFmpeg(reporter())), QString());
        QCOMPARE(m_reports.value(1),
                 QStringLiteral(
                     "⚠️ Source principale indisponible (ffmpeg ne s'exécute pas sur cette machine)"));
        QCOMPARE(m_reports.value(2), QStringLiteral("✅ FFmpeg système utilisé : ") + own);
        QCOMPARE(contentsOf(own), old);
        QCOMPARE(entriesOf(service->layout().ffmpegDir()), (QStringList{"ffmpeg", "ffprobe"}));
        QCOMPARE(service->manifest().ffmpegVersion, recorded);
    }

    void aDownloadCutInTheMiddleLeavesNothingAtTheDestination() {
        m_mirror->setRules(R"([{"prefix": ")" + linuxFFmpeg.toUtf8() + R"(", "cutAfter": 25}])");
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installFFmpeg(reporter())), noFFmpeg);
        QVERIFY(m_reports.value(1).startsWith(QStringLiteral("⚠️ Source principale indisponible (")));
        QVERIFY(!QFileInfo::exists(service->layout().ownFFmpeg()));
        QVERIFY(!QFileInfo::exists(service->layout().ownFFmpeg() + QStringLiteral(".partial")));
    }

    void fpcalcFromItsArchive() {
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installFpcalc(reporter())), QString());
        QCOMPARE(m_reports, QStringList{"Téléchargement Chromaprint 1.6.1…"});
        QVERIFY(service->setupLog().contains(QStringLiteral("✅ fpcalc installé\n")));
        QCOMPARE(service->manifest().fpcalcVersion, QStringLiteral("1.6.1"));
        QCOMPARE(outputOf(service->layout().fpcalcPath(), QStringLiteral("-version")),
                 QStringLiteral("fpcalc version 1.6.1"));
    }

    void anArchiveWithoutItsFile() {
        m_temp->writeFile(QStringLiteral("pack/chromaprint-fpcalc-1.6.1-linux-x86_64/LICENSE.md"), "licence");
        QProcess tar;
        tar.setWorkingDirectory(m_temp->path() + QStringLiteral("/pack"));
        tar.start(QStringLiteral("/usr/bin/tar"),
                  {"czf", "../empty.tar.gz", "chromaprint-fpcalc-1.6.1-linux-x86_64"});
        QVERIFY(tar.waitForFinished() && tar.exitCode() == 0);
        ToolSources sources = mirrorSources(linux);
        serveTrusted(sources, QStringLiteral("fpcalc"), linuxFpcalc,
                     contentsOf(m_temp->path() + "/empty.tar.gz"));
        auto service = runtime(sources);
        QCOMPARE(errorOf(service->installFpcalc(reporter())), QStringLiteral("fpcalc absent de l'archive"));
        QVERIFY(!QFileInfo::exists(service->layout().fpcalcPath()));
        QCOMPARE(service->manifest().fpcalcVersion, std::nullopt);
    }

    void quickJS() {
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installQuickJS(reporter())), QString());
        QCOMPARE(m_reports, QStringList{"Téléchargement QuickJS 0.16.2…"});
        QVERIFY(service->setupLog().contains(QStringLiteral("✅ QuickJS installé\n")));
        QCOMPARE(service->manifest().qjsVersion, QStringLiteral("0.16.2"));
        QVERIFY(InstallLayout::isExecutable(service->layout().qjsPath()));
    }

    void uvFirstInstallTakesTheLatestRelease() {
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installUV(reporter())), QString());
        QCOMPARE(m_reports, QStringList{"Téléchargement de uv…"});
        QCOMPARE(outputOf(service->layout().uvPath(), QStringLiteral("--version")),
                 QStringLiteral("uv 0.9.5 (marlune mirror stand-in)"));
        QVERIFY(m_mirror->requests().contains(
            QStringLiteral("GET /github/astral-sh/uv/releases/latest/download/") + uvAsset +
            QStringLiteral(" Marlune")));
    }

    void uvFirstInstallFailure() {
        m_mirror->setRules(R"([{"prefix": "/github/astral-sh/uv/", "status": 503}])");
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installUV(reporter())),
                 QStringLiteral("Impossible de télécharger uv : HTTP 503 pour ") + uvAsset);
        QVERIFY(!QFileInfo::exists(service->layout().uvPath()));
    }

    void uvAtTheLatestVersionIsNotDownloadedAgain() {
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installUV(reporter())), QString());
        const QDateTime installed = QFileInfo(service->layout().uvPath()).lastModified();
        m_mirror->clearRequests();
        m_reports.clear();
        QCOMPARE(errorOf(service->installUV(reporter())), QString());
        QCOMPARE(m_reports, QStringList());
        QCOMPARE(m_mirror->requests(), QStringList{apiLatestUv});
        QCOMPARE(QFileInfo(service->layout().uvPath()).lastModified(), installed);
    }

    void installedUvAgainstTheLatest_data() {
        QTest::addColumn<QByteArray>("versionLine");
        QTest::addColumn<QByteArray>("rules");
        QTest::addColumn<bool>("updated");
        QTest::newRow("older") << QByteArray("uv 0.9.4 (old)") << QByteArray("[]") << true;
        QTest::newRow("older, API rate-limited")
            << QByteArray("uv 0.9.4") << QByteArray(R"([{"prefix": "/api/", "status": 403}])") << true;
        QTest::newRow("newer by version order") << QByteArray("uv 0.10.0") << QByteArray("[]") << false;
        QTest::newRow("no answer counts as older") << QByteArray("") << QByteArray("[]") << true;
        QTest::newRow("no lookup, no change")
            << QByteArray("uv 0.1.0")
            << QByteArray(
                   R"([{"prefix": "/api/", "status": 500}, {"prefix": "/github/astral-sh/uv/releases/latest", "status": 404}])")
            << false;
    }
    void installedUvAgainstTheLatest() {
        QFETCH(QByteArray, versionLine);
        QFETCH(QByteArray, rules);
        QFETCH(bool, updated);
        const QByteArray old = versionLine.isEmpty() ? QByteArray("#!/bin/sh\nexit 1\n")
                                                     : "#!/bin/sh\necho '" + versionLine + "'\n";
        const QString uv = m_temp->writeFile(QStringLiteral("Halvorn/uv/uv"), old, true);
        m_mirror->setRules(rules);
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installUV(reporter())), QString());
        if (updated) {
            QCOMPARE(m_reports, QStringList{"Mise à jour de uv 0.9.5"});
            QCOMPARE(outputOf(uv, QStringLiteral("--version")),
                     QStringLiteral("uv 0.9.5 (marlune mirror stand-in)"));
            QVERIFY(m_mirror->requests().contains(
                QStringLiteral("GET /github/astral-sh/uv/releases/download/0.9.5/") + uvAsset +
                QStringLiteral(" Marlune")));
        } else {
            QCOMPARE(m_reports, QStringList());
            QCOMPARE(contentsOf(uv), old);
        }
    }

    void aFailedUvUpdateKeepsTheOldOne() {
        const QByteArray old = "#!/bin/sh\necho 'uv 0.9.4'\n";
        const QString uv = m_temp->writeFile(QStringLiteral("Halvorn/uv/uv"), old, true);
        m_mirror->setRules(R"([{"prefix": "/github/astral-sh/uv/releases/download/", "status": 503}])");
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installUV(reporter())), QString());
        QCOMPARE(m_reports, QStringList{"Mise à jour de uv 0.9.5"});
        QVERIFY(service->setupLog().contains(QStringLiteral("⚠️ uv non mis à jour : HTTP 503 pour ") +
                                             uvAsset));
        QCOMPARE(contentsOf(uv), old);
        QCOMPARE(entriesOf(service->layout().supportURL(QStringLiteral("uv"))), QStringList{"uv"});
    }

    void pythonThroughUv() {
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(errorOf(service->installUV(reporter())), QString());
        m_reports.clear();
        QCOMPARE(errorOf(service->installPython(reporter())), QString());
        QCOMPARE(m_reports,
                 (QStringList{"Installed Python 3.12 in 0.01s", " + cpython-3.12-standin-linux-x86_64-gnu"}));
        QVERIFY(QFileInfo::exists(service->layout().pythonDir() +
                                  QStringLiteral("/cpython-3.12-standin-linux-x86_64-gnu/bin/python3.12")));
        m_reports.clear();
        QCOMPARE(errorOf(service->installPython(reporter())), QString());
        QCOMPARE(m_reports, QStringList{"Python 3.12 is already installed"});

        const QJsonObject call = QJsonDocument::fromJson(m_mirror->uvCalls().last()).object();
        QCOMPARE(call.value("argv").toVariant().toStringList(), (QStringList{"python", "install", "3.12"}));
        const QJsonObject environment = call.value("env").toObject();
        QCOMPARE(environment.value("UV_PYTHON_INSTALL_DIR").toString(), service->layout().pythonDir());
        QCOMPARE(environment.value("UV_CACHE_DIR").toString(), service->layout().uvCacheDir());
        QCOMPARE(environment.value("UV_PYTHON_PREFERENCE").toString(), QStringLiteral("only-managed"));
        QCOMPARE(environment.value("UV_NO_PROGRESS").toString(), QStringLiteral("1"));

        m_mirror->setUvControl(R"({"failPython": true})");
        QCOMPARE(
            errorOf(service->installPython(reporter())),
            QStringLiteral("uv (code 1)\nerror: Failed to download Python 3.12 (requested by the mirror)"));
    }

    void pythonWithoutUv() {
        auto service = runtime(mirrorSources(linux));
        QVERIFY(errorOf(service->installPython(reporter()))
                    .startsWith(QStringLiteral("Impossible de lancer uv : ")));
    }

    void uvEnvironmentIsTheCleanOnePlusUvSettings() {
        qputenv("VIRTUAL_ENV", "/outer/venv");
        auto service = runtime(mirrorSources(linux));
        qunsetenv("VIRTUAL_ENV");
        const QProcessEnvironment environment = service->uvEnvironment();
        QVERIFY(!environment.contains(QStringLiteral("VIRTUAL_ENV")));
        QCOMPARE(environment.value(QStringLiteral("HOME")), m_temp->home());
        QCOMPARE(environment.value(QStringLiteral("UV_PYTHON_INSTALL_DIR")),
                 m_temp->root() + QStringLiteral("/python"));
        QCOMPARE(environment.value(QStringLiteral("UV_CACHE_DIR")),
                 m_temp->root() + QStringLiteral("/uv-cache"));
    }

    void latestVersionLookups() {
        auto service = runtime(mirrorSources(linux));
        QCOMPARE(QCoro::waitFor(service->latestRelease(QStringLiteral("astral-sh/uv"))),
                 QStringLiteral("0.9.5"));
        QCOMPARE(QCoro::waitFor(service->latestRelease(QStringLiteral("nobody/nothing"))), std::nullopt);
        QCOMPARE(QCoro::waitFor(service->latestPyPIVersion(QStringLiteral("yt-dlp"))),
                 QStringLiteral("2025.10.22"));
        QCOMPARE(QCoro::waitFor(service->latestPyPIVersion(QStringLiteral("not-a-package"))), std::nullopt);
        m_mirror->setRules(R"([{"prefix": "/api/", "status": 403}])");
        QCOMPARE(QCoro::waitFor(service->latestRelease(QStringLiteral("astral-sh/uv"))),
                 QStringLiteral("0.9.5"));
        const QStringList requests = m_mirror->requests();
        QVERIFY(requests.contains(QStringLiteral("HEAD /github/astral-sh/uv/releases/latest Marlune")));
        QVERIFY(requests.contains(QStringLiteral("HEAD /github/astral-sh/uv/releases/tag/0.9.5 Marlune")));
    }
};

QTEST_GUILESS_MAIN(ToolProvisioningTest)
#include "ToolProvisioningTest.moc"
