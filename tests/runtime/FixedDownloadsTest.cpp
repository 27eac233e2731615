#include "runtime/FixedDownloads.h"
#include "runtime/SetupError.h"
#include "runtime/ToolSources.h"
#include "support/TempInstallRoot.h"

#include <QtTest>

namespace {
const QByteArray oneRow = R"({"linux-x86_64": [{"tool": "qjs", "version": "1.0", "host": "github",
    "path": "/o/n/releases/download/v1/qjs", "form": "executable",
    "sha256": "AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA"}]})";
}

class FixedDownloadsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void builtInMacRowsAreTheOriginalOnes_data() {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("form");
        QTest::addColumn<QString>("sha256");
        const int executable = int(DownloadForm::executable);
        QTest::newRow("ffmpeg")
            << "ffmpeg"
            << "8.1.2"
            << "/shaka-project/static-ffmpeg-binaries/releases/download/n8.1.2-1/ffmpeg-osx-arm64"
            << executable << "e7b9fcd97f95f333512d6e8b8ac24d9dbc08f189f36047695499bd7b57214b22";
        QTest::newRow("ffprobe")
            << "ffprobe"
            << "8.1.2"
            << "/shaka-project/static-ffmpeg-binaries/releases/download/n8.1.2-1/ffprobe-osx-arm64"
            << executable << "ded4c698b8ff38d0bc1fd30fcc5e768dc46f58bc15a8dfd61f98615ba49cde5c";
        QTest::newRow("ffmpeg fallback")
            << "ffmpegFallback"
            << "8.1.1"
            << "/ffmpeg/ffmpeg-8.1.1.zip" << int(DownloadForm::zip)
            << "4610988e2f54c243c50da73a09e4e2c36d9bb77546f9aa6c84cb328dcb1a98c1";
        QTest::newRow("ffprobe fallback")
            << "ffprobeFallback"
            << "8.1.1"
            << "/ffmpeg/ffprobe-8.1.1.zip" << int(DownloadForm::zip)
            << "aeade29dee3c3844e9bcc974f4ae4b29cc4f87994177d77003a8589fa531009e";
        QTest::newRow("fpcalc") << "fpcalc"
                                << "1.6.1"
                                << "/acoustid/chromaprint/releases/download/v1.6.1/"
                                   "chromaprint-fpcalc-1.6.1-macos-universal.tar.gz"
                                << int(DownloadForm::tarGz)
                                << "240aeb5a8c8205af458e3625cb7487b826b711a999e491ef00111f3cebd76f00";
        QTest::newRow("qjs") << "qjs"
                             << "0.16.2"
                             << "/quickjs-ng/quickjs/releases/download/v0.16.2/qjs-darwin-arm64" << executable
                             << "f6200e9856c45578a5d42ac873a32f3f994b421e29df9f63b452d9c7145015fc";
        QTest::newRow("uv") << "uv"
                            << ""
                            << "/astral-sh/uv/releases/latest/download/uv-aarch64-apple-darwin.tar.gz"
                            << int(DownloadForm::tarGz) << "";
    }
    void builtInMacRowsAreTheOriginalOnes() {
        QFETCH(QString, tool);
        const auto row = FixedDownloads::builtIn().row(QStringLiteral("macos-arm64"), tool);
        QVERIFY(row);
        QTEST(row->version, "version");
        QTEST(row->path, "path");
        QTEST(int(row->form), "form");
        QTEST(row->sha256, "sha256");
        QCOMPARE(row->host, tool.endsWith(QStringLiteral("Fallback")) ? DownloadHost::ffmpegFallback
                                                                      : DownloadHost::github);
    }

    void builtInLinuxRowsHaveNoFallbackAndUseLinuxAssets() {
        const FixedDownloads table = FixedDownloads::builtIn();
        const QString linux = QStringLiteral("linux-x86_64");
        QStringList tools;
        for (const FixedDownload& row : table.rows(linux))
            tools.append(row.tool);
        QCOMPARE(tools, (QStringList{"ffmpeg", "ffprobe", "fpcalc", "qjs", "uv"}));
        QCOMPARE(table.row(linux, QStringLiteral("ffmpeg"))->fileName(), QStringLiteral("ffmpeg-linux-x64"));
        QCOMPARE(table.row(linux, QStringLiteral("ffprobe"))->fileName(),
                 QStringLiteral("ffprobe-linux-x64"));
        QCOMPARE(table.row(linux, QStringLiteral("fpcalc"))->fileName(),
                 QStringLiteral("chromaprint-fpcalc-1.6.1-linux-x86_64.tar.gz"));
        QCOMPARE(table.row(linux, QStringLiteral("qjs"))->fileName(), QStringLiteral("qjs-linux-x86_64"));
        const auto uv = table.row(linux, QStringLiteral("uv"));
        QCOMPARE(uv->pathForVersion(QStringLiteral("0.9.5")),
                 QStringLiteral("/astral-sh/uv/releases/download/0.9.5/uv-x86_64-unknown-linux-gnu.tar.gz"));
        QVERIFY(!uv->isFixedVersion());
        for (const QString& platform : table.platforms())
            for (const FixedDownload& row : table.rows(platform))
                QVERIFY2(!row.isFixedVersion() || row.sha256.isEmpty() || row.isPinned(),
                         qPrintable(row.tool));
    }

    void versionsAreSharedAcrossPlatforms() {
        const FixedDownloads table = FixedDownloads::builtIn();
        QCOMPARE(table.versionOf(QStringLiteral("ffmpeg")), QStringLiteral("8.1.2"));
        QCOMPARE(table.versionOf(QStringLiteral("ffmpegFallback")), QStringLiteral("8.1.1"));
        QCOMPARE(table.versionOf(QStringLiteral("fpcalc")), QStringLiteral("1.6.1"));
        QCOMPARE(table.versionOf(QStringLiteral("qjs")), QStringLiteral("0.16.2"));
        QCOMPARE(table.versionOf(QStringLiteral("uv")), QString());
    }

    void jsonRoundTrip() {
        const FixedDownloads table = FixedDownloads::builtIn();
        QCOMPARE(FixedDownloads::fromJson(table.toJson()), table);
    }

    void malformedTablesAreRefusedWithAReason_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("reason");
        QTest::newRow("not JSON") << QByteArray("{\"a\": [") << "JSON invalide";
        QTest::newRow("garbage bytes") << QByteArray("\x00\xff\xfe garbage", 12) << "JSON invalide";
        QTest::newRow("array document") << QByteArray("[]") << "le document n'est pas un objet";
        QTest::newRow("platform not a list") << QByteArray(R"({"p": {}})") << "« p » n'est pas une liste";
        QTest::newRow("row not an object") << QByteArray(R"({"p": [1]})") << "une ligne n'est pas un objet";
        QTest::newRow("no tool") << QByteArray(R"({"p": [{"path": "/a", "form": "zip"}]})")
                                 << "n'a pas d'outil";
        QTest::newRow("tool not text")
            << QByteArray(R"({"p": [{"tool": 3}]})") << "« tool » n'est pas un texte";
        QTest::newRow("relative path")
            << QByteArray(R"({"p": [{"tool": "t", "path": "a/b", "form": "zip"}]})")
            << "chemin invalide pour t";
        QTest::newRow("path ends with a slash")
            << QByteArray(R"({"p": [{"tool": "t", "path": "/a/", "form": "zip"}]})")
            << "chemin invalide pour t";
        QTest::newRow("unknown host")
            << QByteArray(R"({"p": [{"tool": "t", "path": "/a", "host": "x", "form": "zip"}]})")
            << "hôte inconnu pour t : x";
        QTest::newRow("unknown form") << QByteArray(R"({"p": [{"tool": "t", "path": "/a", "form": "rar"}]})")
                                      << "forme inconnue pour t : rar";
        QTest::newRow("short digest")
            << QByteArray(R"({"p": [{"tool": "t", "path": "/a", "form": "zip", "sha256": "abc"}]})")
            << "somme SHA-256 invalide pour t";
        QTest::newRow("digest with a non-hex digit")
            << QByteArray(R"({"p": [{"tool": "t", "path": "/a", "form": "zip", "sha256": ")" +
                          QByteArray(63, 'a') + R"(g"}]})")
            << "somme SHA-256 invalide pour t";
        QTest::newRow("versioned path without placeholder")
            << QByteArray(R"({"p": [{"tool": "t", "path": "/a", "form": "zip", "versionedPath": "/b"}]})")
            << "chemin versionné invalide pour t";
        QTest::newRow("tool listed twice")
            << QByteArray(
                   R"({"p": [{"tool": "t", "path": "/a", "form": "zip"}, {"tool": "t", "path": "/b", "form": "zip"}]})")
            << "t figure deux fois";
    }
    void malformedTablesAreRefusedWithAReason() {
        QFETCH(QByteArray, json);
        QFETCH(QString, reason);
        QString error;
        QVERIFY(!FixedDownloads::fromJson(json, &error));
        QVERIFY2(error.contains(reason), qPrintable(error));
    }

    void digestsAreReadInEitherCaseAndUnknownKeysIgnored() {
        QByteArray json = oneRow;
        json.replace("\"form\"", "\"extra\": [1], \"form\"");
        const auto table = FixedDownloads::fromJson(json);
        QVERIFY(table);
        const auto row = table->row(QStringLiteral("linux-x86_64"), QStringLiteral("qjs"));
        QCOMPARE(row->sha256, QString(64, QLatin1Char('a')));
        QVERIFY(row->isPinned());
    }

    void trustedRowsReplaceTheirOwnAndKeepTheOthers() {
        FixedDownloads table = FixedDownloads::builtIn();
        const auto trusted = FixedDownloads::fromJson(oneRow);
        QVERIFY(trusted);
        table.overrideWith(*trusted);
        const QString linux = QStringLiteral("linux-x86_64");
        QCOMPARE(table.row(linux, QStringLiteral("qjs"))->path,
                 QStringLiteral("/o/n/releases/download/v1/qjs"));
        QCOMPARE(table.row(linux, QStringLiteral("ffmpeg")),
                 FixedDownloads::builtIn().row(linux, QStringLiteral("ffmpeg")));
        QCOMPARE(table.rows(linux).size(), FixedDownloads::builtIn().rows(linux).size());
        QCOMPARE(table.rows(QStringLiteral("macos-arm64")),
                 FixedDownloads::builtIn().rows(QStringLiteral("macos-arm64")));

        FixedDownload added = *table.row(linux, QStringLiteral("qjs"));
        added.tool = QStringLiteral("other");
        table.put(QStringLiteral("linux-arm64"), added);
        QCOMPARE(table.rows(QStringLiteral("linux-arm64")), QList<FixedDownload>{added});
    }

    void platformNames() {
        QCOMPARE(FixedDownloads::architectureOf(QStringLiteral("linux-x86_64")), QStringLiteral("x86_64"));
        QCOMPARE(FixedDownloads::architectureOf(QStringLiteral("macos-arm64")), QStringLiteral("arm64"));
        const QString current = FixedDownloads::currentPlatform();
        QVERIFY2(current.startsWith(QStringLiteral("linux-")), qPrintable(current));
        QVERIFY(!FixedDownloads::architectureOf(current).isEmpty());
    }

    void environmentHandsOverTheTrustedTable() {
        TempInstallRoot temp;
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("MARLUNE_TOOL_DIGESTS"),
                           temp.writeFile(QStringLiteral("t.json"), oneRow));
        environment.insert(QStringLiteral("MARLUNE_GITHUB_URL"), QStringLiteral("http://127.0.0.1:1/gh"));
        ToolSources sources = ToolSources::fromEnvironment(environment);
        sources.platform = QStringLiteral("linux-x86_64");
        QVERIFY(sources.row(QStringLiteral("qjs"))->isPinned());
        QCOMPARE(sources.addressOf(sources.pinnedRow(QStringLiteral("qjs"))),
                 QUrl(QStringLiteral("http://127.0.0.1:1/gh/o/n/releases/download/v1/qjs")));
    }

    void aMalformedTrustedTableIsIgnored_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<bool>("exists");
        QTest::newRow("garbage") << QByteArray("not json at all") << true;
        QTest::newRow("one bad row") << QByteArray(R"({"linux-x86_64": [{"tool": "qjs"}]})") << true;
        QTest::newRow("missing file") << QByteArray() << false;
    }
    void aMalformedTrustedTableIsIgnored() {
        QFETCH(QByteArray, contents);
        QFETCH(bool, exists);
        TempInstallRoot temp;
        const QString path = exists ? temp.writeFile(QStringLiteral("t.json"), contents)
                                    : temp.path() + QStringLiteral("/absent.json");
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("MARLUNE_TOOL_DIGESTS"), path);
        QCOMPARE(ToolSources::fromEnvironment(environment).downloads, FixedDownloads::builtIn());
    }

    void unpinnedRowsAreNeverHandedOut_data() {
        QTest::addColumn<QString>("platform");
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QString>("message");
        QTest::newRow("linux ffmpeg not pinned")
            << "linux-x86_64"
            << "ffmpeg"
            << "Aucune version vérifiée de ffmpeg-linux-x64 pour cette plateforme (linux-x86_64)";
        QTest::newRow("no fallback on linux")
            << "linux-x86_64"
            << "ffmpegFallback"
            << "Aucune version vérifiée de ffmpegFallback pour cette plateforme (linux-x86_64)";
        QTest::newRow("unknown platform")
            << "plan9-mips"
            << "qjs"
            << "Aucune version vérifiée de qjs pour cette plateforme (plan9-mips)";
        QTest::newRow("latest-version row") << "macos-arm64"
                                            << "uv"
                                            << "Aucune version vérifiée de uv-aarch64-apple-darwin.tar.gz "
                                               "pour cette plateforme (macos-arm64)";
    }
    void unpinnedRowsAreNeverHandedOut() {
        QFETCH(QString, platform);
        QFETCH(QString, tool);
        ToolSources sources;
        sources.platform = platform;
        try {
            sources.pinnedRow(tool);
            QFAIL("an unpinned row was handed out");
        } catch (const SetupError& error) {
            QTEST(error.message(), "message");
        }
    }

    void fallbackSiteNames() {
        ToolSources sources;
        QCOMPARE(sources.fallbackHost(), QStringLiteral("evermeet.cx"));
        QCOMPARE(sources.fallbackName(), QStringLiteral("evermeet"));
        sources.addresses.ffmpegFallback = QStringLiteral("https://www.example.org/builds");
        QCOMPARE(sources.fallbackHost(), QStringLiteral("www.example.org"));
        QCOMPARE(sources.fallbackName(), QStringLiteral("example"));
        sources.addresses.ffmpegFallback = QStringLiteral("http://127.0.0.1:4321/ffmpeg-fallback");
        QCOMPARE(sources.fallbackHost(), QStringLiteral("127.0.0.1"));
        QCOMPARE(sources.fallbackName(), QStringLiteral("127.0.0.1"));
        const FixedDownload fallback =
            *FixedDownloads::builtIn().row(QStringLiteral("macos-arm64"), QStringLiteral("ffmpegFallback"));
        QCOMPARE(sources.addressOf(fallback),
                 QUrl(QStringLiteral("http://127.0.0.1:4321/ffmpeg-fallback/ffmpeg/ffmpeg-8.1.1.zip")));
    }
};

QTEST_GUILESS_MAIN(FixedDownloadsTest)
#include "FixedDownloadsTest.moc"
