#include "audio/StemTrack.h"
#include "audio/StemFile.h"

#include <QJsonDocument>
#include <QSignalSpy>
#include <QTest>

class StemTrackTest : public QObject {
    Q_OBJECT

private slots:
    void stemFileForJob() {
        const StemFile file = StemFile::forJob(QStringLiteral("job-7"), StemKind::drums);
        QCOMPARE(file.id, QStringLiteral("job-7-drums"));
        QCOMPARE(file.kind, StemKind::drums);
        QCOMPARE(file.fileName, QStringLiteral("drums.wav"));
        QCOMPARE(file.durationSeconds, std::nullopt);
        QCOMPARE(file.localURL, std::nullopt);
    }

    void encodeWithoutDurationOmitsTheKey() {
        const StemFile file = StemFile::forJob(QStringLiteral("a"), StemKind::mix);
        const QJsonObject json = file.toJson();
        QVERIFY(!json.contains(QStringLiteral("duration")));
        QCOMPARE(json.value(QStringLiteral("kind")).toString(), QStringLiteral("mix"));
        QCOMPARE(json.value(QStringLiteral("file_name")).toString(), QStringLiteral("mix.wav"));
        QCOMPARE(json.size(), 3);
        QCOMPARE(StemFile::fromJson(json), std::optional<StemFile>(file));
    }

    void roundTripDropsTheLocalUrl() {
        StemFile file = StemFile::forJob(QStringLiteral("b"), StemKind::bass);
        file.durationSeconds = 12.25;
        file.localURL = QUrl::fromLocalFile(QStringLiteral("/tmp/bass.wav"));
        const QJsonObject json = file.toJson();
        QCOMPARE(json.value(QStringLiteral("duration")).toDouble(), 12.25);
        const std::optional<StemFile> decoded = StemFile::fromJson(json);
        QVERIFY(decoded);
        QCOMPARE(decoded->localURL, std::nullopt);
        QVERIFY(*decoded != file); // the local URL takes part in equality
        file.localURL.reset();
        QCOMPARE(*decoded, file);
    }

    void decodingFailures_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("decodes");
        QTest::newRow("complete") << QByteArray(R"({"id":"x-mix","kind":"mix","file_name":"mix.wav"})")
                                  << true;
        QTest::newRow("null duration")
            << QByteArray(R"({"id":"x","kind":"mix","file_name":"m","duration":null})") << true;
        QTest::newRow("capitalised kind")
            << QByteArray(R"({"id":"x","kind":"Vocals","file_name":"v"})") << false;
        QTest::newRow("empty kind") << QByteArray(R"({"id":"x","kind":"","file_name":"v"})") << false;
        QTest::newRow("missing id") << QByteArray(R"({"kind":"mix","file_name":"m"})") << false;
        QTest::newRow("missing file name") << QByteArray(R"({"id":"x","kind":"mix"})") << false;
        QTest::newRow("text duration")
            << QByteArray(R"({"id":"x","kind":"mix","file_name":"m","duration":"3"})") << false;
        QTest::newRow("numeric kind") << QByteArray(R"({"id":"x","kind":3,"file_name":"m"})") << false;
    }

    void decodingFailures() {
        QFETCH(QByteArray, json);
        QFETCH(bool, decodes);
        QCOMPARE(StemFile::fromJson(QJsonDocument::fromJson(json).object()).has_value(), decodes);
    }

    void notAnObject() { QCOMPARE(StemFile::fromJson(QJsonValue(QStringLiteral("mix"))), std::nullopt); }

    void newTrackDefaults() {
        const StemFile file = StemFile::forJob(QStringLiteral("j"), StemKind::piano);
        const StemTrack track(file, QUrl::fromLocalFile(QStringLiteral("/tmp/piano.wav")));
        QCOMPARE(track.id(), QStringLiteral("j-piano"));
        QCOMPARE(track.kind(), StemKind::piano);
        QCOMPARE(track.stemFile(), file);
        QCOMPARE(track.audioURL, std::optional<QUrl>(QUrl::fromLocalFile(QStringLiteral("/tmp/piano.wav"))));
        QCOMPARE(track.volume(), 1.0f);
        QVERIFY(!track.isMuted());
        QVERIFY(!track.isSolo());
        QVERIFY(!track.isMonitor());
        QCOMPARE(track.vuLevel(), 0.0f);
        QCOMPARE(track.peakLevel(), 0.0f);
        QVERIFY(track.waveformSamples().isEmpty());
        QVERIFY(!track.isLoadingWaveform());
        QCOMPARE(StemTrack(file).audioURL, std::nullopt);
    }

    void changesAreAnnouncedOnce() {
        StemTrack track(StemFile::forJob(QStringLiteral("j"), StemKind::vocals));
        QSignalSpy volume(&track, &StemTrack::volumeChanged);
        QSignalSpy muted(&track, &StemTrack::isMutedChanged);
        QSignalSpy solo(&track, &StemTrack::isSoloChanged);
        QSignalSpy monitor(&track, &StemTrack::isMonitorChanged);
        QSignalSpy vu(&track, &StemTrack::vuLevelChanged);
        QSignalSpy peak(&track, &StemTrack::peakLevelChanged);
        QSignalSpy samples(&track, &StemTrack::waveformSamplesChanged);
        QSignalSpy loading(&track, &StemTrack::isLoadingWaveformChanged);

        track.setVolume(1.0f); // unchanged: silent
        track.setVolume(0.5f);
        track.setMuted(true);
        track.setMuted(true);
        track.setSolo(true);
        track.setMonitor(true);
        track.setVuLevel(0.25f);
        track.setPeakLevel(0.75f);
        track.setWaveformSamples({0.1f, 1.0f});
        track.setLoadingWaveform(true);

        QCOMPARE(volume.count(), 1);
        QCOMPARE(volume.first().first().toFloat(), 0.5f);
        QCOMPARE(muted.count(), 1);
        QCOMPARE(solo.count(), 1);
        QCOMPARE(monitor.count(), 1);
        QCOMPARE(vu.count(), 1);
        QCOMPARE(peak.count(), 1);
        QCOMPARE(samples.count(), 1);
        QCOMPARE(loading.count(), 1);
        QCOMPARE(track.waveformSamples(), (QList<float>{0.1f, 1.0f}));
        QCOMPARE(track.property("volume").toFloat(), 0.5f);
        QCOMPARE(track.property("isMuted").toBool(), true);
    }

    void sharedBetweenOwners() {
        StemTrackPtr first =
            std::make_shared<StemTrack>(StemFile::forJob(QStringLiteral("j"), StemKind::bass));
        StemTrackPtr second = first;
        first.reset();
        second->setMuted(true);
        QVERIFY(second->isMuted());
        QCOMPARE(second.use_count(), 1);
    }
};

QTEST_GUILESS_MAIN(StemTrackTest)
#include "StemTrackTest.moc"
