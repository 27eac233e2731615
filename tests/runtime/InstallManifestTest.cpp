#include "runtime/ManifestStore.h"
#include "runtime/PythonRuntimeService.h"
#include "runtime/VersionOrder.h"
#include "support/TempInstallRoot.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

namespace {
InstallLayout::Config layoutIn(const TempInstallRoot& temp, QStringList ffmpeg = {},
                               QStringList ffprobe = {}) {
    return {temp.root(), temp.documents(), temp.home(), std::move(ffmpeg), std::move(ffprobe)};
}

void installBackend(const TempInstallRoot& temp, const QString& tag, bool ready = true,
                    bool executable = true) {
    temp.writeFile(QStringLiteral("Halvorn/backends/%1/.venv/bin/python").arg(tag), "#!/bin/sh\n",
                   executable);
    if (ready)
        temp.writeFile(QStringLiteral("Halvorn/backends/%1/.halvorn-ready").arg(tag), "");
}
} // namespace

class InstallManifestTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void versionOrder_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("order");
        QTest::newRow("minor as number") << "v1.10.0"
                                         << "v1.9.9" << 1;
        QTest::newRow("missing piece is zero") << "1.2"
                                               << "1.2.0" << 0;
        QTest::newRow("trailing v and spaces") << " V2.0.0v "
                                               << "2" << 0;
        QTest::newRow("letters split pieces") << "1.2-beta3"
                                              << "1.2.3" << 0;
        QTest::newRow("smaller") << "v0.9"
                                 << "v1" << -1;
        QTest::newRow("empty against zero") << ""
                                            << "0.0" << 0;
        QTest::newRow("huge piece saturates") << "99999999999999999999999"
                                              << "9223372036854775806" << 1;
    }
    void versionOrder() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, order);
        QCOMPARE(VersionOrder::compare(a, b), order);
        QCOMPARE(VersionOrder::compare(b, a), -order);
    }

    void manifestRoundTripsWithSortedKeys() {
        InstallManifest manifest;
        manifest.backendTag = QStringLiteral("v1.4.0");
        manifest.ffmpegVersion = QStringLiteral("8.1.2");
        manifest.modelsFailed = QStringList{QStringLiteral("mdx")};
        manifest.skippedPackages = QStringList{};
        manifest.lastUpdateCheck = QDateTime(QDate(2026, 3, 4), QTime(5, 6, 7), Qt::UTC);
        const QByteArray json = manifest.toJson();
        QVERIFY(json.contains("\"lastUpdateCheck\": \"2026-03-04T05:06:07Z\""));
        QVERIFY(json.indexOf("backendTag") < json.indexOf("ffmpegVersion"));
        QVERIFY(json.indexOf("ffmpegVersion") < json.indexOf("lastUpdateCheck"));
        QVERIFY(!json.contains("fpcalcVersion"));
        const auto decoded = InstallManifest::fromJson(json);
        QVERIFY(decoded);
        QCOMPARE(*decoded, manifest);
    }

    void manifestDecoding_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<QString>("tag");
        QTest::newRow("unknown keys") << QByteArray(R"({"backendTag":"v1","extra":[1,2]})") << true << "v1";
        QTest::newRow("null is absent") << QByteArray(R"({"backendTag":null})") << true << "";
        QTest::newRow("tag as number") << QByteArray(R"({"backendTag":3})") << false << "";
        QTest::newRow("list of numbers")
            << QByteArray(R"({"backendTag":"v1","modelsFailed":[1]})") << false << "";
        QTest::newRow("bad date") << QByteArray(R"({"backendTag":"v1","lastUpdateCheck":"yesterday"})")
                                  << false << "";
        QTest::newRow("array document") << QByteArray("[]") << false << "";
        QTest::newRow("garbage") << QByteArray("\x01{not json") << false << "";
        QTest::newRow("empty object") << QByteArray("{}") << true << "";
    }
    void manifestDecoding() {
        QFETCH(QByteArray, json);
        QFETCH(bool, decodes);
        QFETCH(QString, tag);
        const auto decoded = InstallManifest::fromJson(json);
        QCOMPARE(bool(decoded), decodes);
        if (decoded)
            QCOMPARE(decoded->backendTag.value_or(QString()), tag);
    }

    void wronglyTypedManifestLoadsEmpty() {
        TempInstallRoot temp;
        temp.writeFile(QStringLiteral("Halvorn/components.json"), R"({"backendTag":"v1","ffmpegVersion":8})");
        ManifestStore store{InstallLayout(layoutIn(temp))};
        store.load();
        QCOMPARE(store.manifest(), InstallManifest{});
    }

    void freshInstallHasEmptyManifestAndUnknownRows() {
        TempInstallRoot temp;
        PythonRuntimeService service(
            {layoutIn(temp), temp.settingsFile(), {}, temp.home(), QStringLiteral("u"), 1});
        QCOMPARE(service.manifest(), InstallManifest{});
        QVERIFY(!QFile::exists(temp.root() + QStringLiteral("/components.json")));
        QCOMPARE(service.components().size(), 9);
        for (const ComponentInfo& row : service.components()) {
            QCOMPARE(row.state, ComponentInfo::State{});
            QVERIFY(!row.installed && !row.latest);
        }
        QCOMPARE(service.components().first().id, ComponentID::ffmpeg);
        QCOMPARE(service.components().last().id, ComponentID::models);
    }

    void lostManifestIsRebuiltFromDisk() {
        TempInstallRoot temp;
        installBackend(temp, QStringLiteral("v1.2.0"));
        installBackend(temp, QStringLiteral("v1.10.0"));
        installBackend(temp, QStringLiteral("v9.0.0"), /*ready=*/false);
        installBackend(temp, QStringLiteral("v8.0.0"), true, /*executable=*/false);
        temp.writeFile(QStringLiteral("Halvorn/data/ffmpeg/ffmpeg"), "x", true);
        temp.writeFile(QStringLiteral("Halvorn/data/ffmpeg/ffprobe"), "x", true);
        temp.writeFile(QStringLiteral("Halvorn/data/jsruntime/qjs"), "x", false); // not executable
        ManifestStore store{InstallLayout(layoutIn(temp))};
        store.load();
        store.reconcile();
        QCOMPARE(store.manifest().backendTag, QStringLiteral("v1.10.0"));
        QCOMPARE(store.manifest().ffmpegVersion, QStringLiteral("8.1.2"));
        QVERIFY(!store.manifest().fpcalcVersion);
        QVERIFY(!store.manifest().qjsVersion);
        ManifestStore reread{InstallLayout(layoutIn(temp))};
        reread.load();
        QCOMPARE(reread.manifest(), store.manifest());
    }

    void reconcileKeepsRecordedValues() {
        TempInstallRoot temp;
        installBackend(temp, QStringLiteral("v2.0.0"));
        temp.writeFile(QStringLiteral("Halvorn/components.json"),
                       R"({"backendTag":"v1.0.0","ffmpegVersion":"8.1.1"})");
        temp.writeFile(QStringLiteral("Halvorn/data/ffmpeg/fpcalc"), "x", true);
        ManifestStore store{InstallLayout(layoutIn(temp))};
        store.load();
        store.reconcile();
        QCOMPARE(store.manifest().backendTag, QStringLiteral("v1.0.0"));
        QCOMPARE(store.manifest().ffmpegVersion, QStringLiteral("8.1.1"));
        QCOMPARE(store.manifest().fpcalcVersion, QStringLiteral("1.6.1"));
    }

    void ffmpegCandidates() {
        TempInstallRoot temp;
        const QString first = temp.writeFile(QStringLiteral("sys1/ffmpeg"), "x", false);
        const QString second = temp.writeFile(QStringLiteral("sys2/ffmpeg"), "x", true);
        const QString probe = temp.writeFile(QStringLiteral("sys2/ffprobe"), "x", true);
        InstallLayout layout(layoutIn(temp, {first, second}, {probe}));
        QCOMPARE(layout.ffmpegPath(), second); // the first candidate is not executable
        QCOMPARE(layout.ffprobePath(), probe);
        temp.writeFile(QStringLiteral("Halvorn/data/ffmpeg/ffmpeg"), "x", true);
        QCOMPARE(layout.ffmpegPath(), layout.ownFFmpeg());
        InstallLayout none(layoutIn(temp, {first}, {}));
        QVERIFY(!none.ffprobePath());
    }

    void purgeKeepsCurrentAndRunningTags() {
        TempInstallRoot temp;
        installBackend(temp, QStringLiteral("v1.0.0"));
        installBackend(temp, QStringLiteral("v1.1.0"));
        temp.writeFile(QStringLiteral("Halvorn/backends/stray-file"), "x");
        PythonRuntimeService service(
            {layoutIn(temp), temp.settingsFile(), {}, temp.home(), QStringLiteral("u"), 1});
        service.manifest().backendTag = QStringLiteral("v1.1.0");
        service.purgeOldBackends();
        QCOMPARE(QDir(temp.root() + QStringLiteral("/backends"))
                     .entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList{QStringLiteral("v1.1.0")});
        QVERIFY(service.setupLog().contains(QStringLiteral("🧹 Ancien backend supprimé : v1.0.0\n")));
        QVERIFY(service.setupLog().contains(QStringLiteral("🧹 Ancien backend supprimé : stray-file\n")));
    }
};

QTEST_GUILESS_MAIN(InstallManifestTest)
#include "InstallManifestTest.moc"
