#include "audio/AudioPlayerService.h"
#include "audio/AudioEngineError.h"
#include "audio/NullOutput.h"
#include "audio/PullOutput.h"
#include "audio/TestSignals.h"

#include <QCoro/QCoroTask>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace TestSignals;

namespace {
constexpr int rate = 44100;
constexpr int64_t lead = 2205; // the 50 ms between play() and the first sample

// An output whose device refuses to start.
class FailingOutput : public AudioOutput {
public:
    QString name() const override { return QStringLiteral("failing"); }
    int sampleRate() const override { return rate; }
    void start(AudioRenderSource&) override { throw AudioEngineError(QStringLiteral("périphérique occupé")); }
    void stop() noexcept override {}
    bool isRunning() const override { return false; }
};

StemTrackPtr track(const QString& id, const std::optional<QString>& path) {
    StemFile stemFile{id, StemKind::other, id + QStringLiteral(".wav"), std::nullopt, std::nullopt};
    std::optional<QUrl> url;
    if (path)
        url = QUrl::fromLocalFile(*path);
    return std::make_shared<StemTrack>(stemFile, url);
}

// A player on a pull output, with its console lines and meters driven by hand.
struct Player {
    PullOutput* output = nullptr;
    QStringList lines;
    std::unique_ptr<AudioPlayerService> service;

    explicit Player(std::function<std::unique_ptr<AudioOutput>()> createOutput = {}) {
        AudioPlayerConfig config;
        config.createOutput = createOutput ? createOutput : [this] {
            auto pull = std::make_unique<PullOutput>(rate);
            output = pull.get();
            return pull;
        };
        config.console = [this](const QString& line) { lines.append(line); };
        config.runMeterTimer = false;
        config.randomSeed = 42;
        service = std::make_unique<AudioPlayerService>(config);
    }
    AudioPlayerService* operator->() { return service.get(); }
    void load(const QList<StemTrackPtr>& tracks) { QCoro::waitFor(service->loadTracks(tracks)); }
    std::vector<float> pull(int64_t frames) { return output->pull(static_cast<size_t>(frames)); }
};
} // namespace

class AudioPlayerServiceTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    QString file(const QString& name) const { return m_dir.filePath(name); }

    // Three one-second stereo stems, each with one impulse at frame 1000, of sizes 1, 2 and 4 tenths:
    // a rendered sample tells which stems were heard, and at which gain.
    QList<StemTrackPtr> threeStems() {
        QList<StemTrackPtr> tracks;
        const float amplitudes[] = {0.1f, 0.2f, 0.4f};
        for (int i = 0; i < 3; ++i) {
            const QString name = QStringLiteral("s%1.wav").arg(i);
            writeWav(file(name), 2, rate, impulses(rate, 2, {1000}, amplitudes[i]));
            tracks.append(track(QStringLiteral("job-%1").arg(i), file(name)));
        }
        return tracks;
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        // A long mono stem with impulses every second, at frame 100 of each second.
        std::vector<int64_t> marks;
        for (int s = 0; s < 32; ++s)
            marks.push_back(s * rate + 100);
        writeWav(file("long.wav"), 1, rate, impulses(32 * rate, 1, marks, 0.5f));
    }

    void aNewPlayerIsEmptyAndPlayDoesNothing() {
        Player player;
        QCOMPARE(player->isPlaying(), false);
        QCOMPARE(player->currentTime(), 0.0);
        QCOMPARE(player->duration(), 0.0);
        QCOMPARE(player->loopEnabled(), false);
        QCOMPARE(player->loopStart(), 0.0);
        QCOMPARE(player->loopEnd(), 0.0);
        player->play();
        QCOMPARE(player->isPlaying(), false);
        player.load({});
        player->play();
        QCOMPARE(player->isPlaying(), false);
    }

    void loadingSkipsTracksWithoutAFileAndLeavesOutThoseThatCannotBeOpened() {
        writeWav(file("two.wav"), 2, rate, std::vector<float>(2 * 2 * rate, 0.1f));
        writeWav(file("three.wav"), 1, 22050, std::vector<float>(3 * 22050, 0.1f));
        QFile bad(file("bad.wav"));
        QVERIFY(bad.open(QIODevice::WriteOnly));
        bad.write("not a wave");
        bad.close();
        Player player;
        player.load({track("a", file("two.wav")), track("nofile", std::nullopt), track("b", file("bad.wav")),
                     track("c", file("three.wav")), track("d", file("missing.wav"))});
        QCOMPARE(player->duration(), 3.0);
        QCOMPARE(player->loadedTracks().size(), 2);
        QCOMPARE(player->loadedTracks()[0]->id(), QStringLiteral("a"));
        QCOMPARE(player->loadedTracks()[1]->id(), QStringLiteral("c"));
        QCOMPARE(player.lines.size(), 2);
        QVERIFY2(player.lines[0].startsWith("[AudioPlayer] Failed to load bad.wav: "),
                 qPrintable(player.lines[0]));
        QVERIFY2(player.lines[1].startsWith("[AudioPlayer] Failed to load missing.wav: "),
                 qPrintable(player.lines[1]));
        QVERIFY(player->engine().isRunning());
        // The stems that did open play.
        player->play();
        const std::vector<float> out = player.pull(lead + 10);
        QCOMPARE(out[2 * lead], 0.2f);
    }

    void everyStemStartsOnTheSameSample50msAfterPlay() {
        Player player;
        player.load(threeStems());
        player->play();
        QVERIFY(player->isPlaying());
        const std::vector<float> out = player.pull(lead + rate);
        QCOMPARE(framesAbove(out, 1e-6f), std::vector<int64_t>{lead + 1000});
        QCOMPARE(out[2 * (lead + 1000)], 0.1f + 0.2f + 0.4f);
    }

    void theMixRulesDecideWhatIsHeard_data() {
        QTest::addColumn<QList<bool>>("muted");
        QTest::addColumn<QList<bool>>("solo");
        QTest::addColumn<QList<float>>("gains");
        QTest::newRow("nothing set: all")
            << QList<bool>{0, 0, 0} << QList<bool>{0, 0, 0} << QList<float>{1, 1, 1};
        QTest::newRow("one muted") << QList<bool>{0, 1, 0} << QList<bool>{0, 0, 0} << QList<float>{1, 0, 1};
        QTest::newRow("one soloed") << QList<bool>{0, 0, 0} << QList<bool>{0, 1, 0} << QList<float>{0, 1, 0};
        QTest::newRow("two soloed") << QList<bool>{0, 0, 0} << QList<bool>{1, 0, 1} << QList<float>{1, 0, 1};
        QTest::newRow("soloed, and muted-and-soloed")
            << QList<bool>{0, 1, 0} << QList<bool>{1, 1, 0} << QList<float>{1, 0, 0};
        QTest::newRow("the only solo is muted: silence")
            << QList<bool>{0, 1, 0} << QList<bool>{0, 1, 0} << QList<float>{0, 0, 0};
        QTest::newRow("all muted") << QList<bool>{1, 1, 1} << QList<bool>{0, 0, 0} << QList<float>{0, 0, 0};
    }
    void theMixRulesDecideWhatIsHeard() {
        QFETCH(QList<bool>, muted);
        QFETCH(QList<bool>, solo);
        QFETCH(QList<float>, gains);
        Player player;
        const QList<StemTrackPtr> tracks = threeStems();
        player.load(tracks);
        player->setVolume(tracks[2]->id(), 0.5f);
        for (int i = 0; i < 3; ++i) {
            player->setMuted(muted[i], tracks[i]->id());
            player->setSolo(solo[i], tracks[i]->id());
        }
        const float volumes[] = {1.0f, 1.0f, 0.5f};
        const float amplitudes[] = {0.1f, 0.2f, 0.4f};
        float expected = 0.0f;
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(tracks[i]->isMuted(), muted[i]);
            QCOMPARE(tracks[i]->isSolo(), solo[i]);
            QCOMPARE(player->stemGain(tracks[i]->id()), gains[i] * volumes[i]);
            expected += gains[i] * volumes[i] * amplitudes[i];
        }
        player->play();
        const std::vector<float> out = player.pull(lead + 1001);
        QCOMPARE(out[2 * (lead + 1000)], expected);
        QCOMPARE(out[2 * (lead + 1000) + 1], expected);
    }

    void unsoloingEveryTrackMakesEveryUnmutedTrackAudibleAgain() {
        Player player;
        const QList<StemTrackPtr> tracks = threeStems();
        player.load(tracks);
        player->setMuted(true, tracks[0]->id());
        player->setSolo(true, tracks[1]->id());
        QCOMPARE(player->stemGain(tracks[2]->id()), 0.0f);
        player->setSolo(false, tracks[1]->id());
        QCOMPARE(player->stemGain(tracks[0]->id()), 0.0f);
        QCOMPARE(player->stemGain(tracks[1]->id()), 1.0f);
        QCOMPARE(player->stemGain(tracks[2]->id()), 1.0f);
    }

    void gainsChangeWhilePlaying() {
        Player player;
        const QList<StemTrackPtr> tracks = threeStems();
        player.load(tracks);
        player->play();
        player.pull(lead + 500);
        player->setMuted(true, tracks[2]->id());
        player->setVolume(tracks[0]->id(), 0.5f);
        const std::vector<float> out = player.pull(1000);
        QCOMPARE(out[2 * 500], 0.05f + 0.2f);
    }

    void anUnknownIdChangesNoTrackButStillAppliesTheMix() {
        Player player;
        const QList<StemTrackPtr> tracks = threeStems();
        player.load(tracks);
        // Set behind the player's back: only a mix pass makes it count.
        tracks[1]->setMuted(true);
        QCOMPARE(player->stemGain(tracks[1]->id()), 1.0f);
        player->setSolo(true, QStringLiteral("nobody"));
        player->setVolume(QStringLiteral("nobody"), 0.1f);
        QCOMPARE(player->stemGain(tracks[1]->id()), 0.0f);
        for (const StemTrackPtr& t : tracks) {
            QCOMPARE(t->isSolo(), false);
            QCOMPARE(t->volume(), 1.0f);
        }
    }

    void monitorIsExclusiveAndTurningItOffClearsItsOwnSolo() {
        Player player;
        const QList<StemTrackPtr> tracks = threeStems();
        player.load(tracks);
        player->setSolo(true, tracks[0]->id());
        player->setSolo(true, tracks[2]->id());
        player->setMonitor(true, tracks[1]->id());
        QCOMPARE(tracks[0]->isSolo(), false);
        QCOMPARE(tracks[1]->isSolo(), true);
        QCOMPARE(tracks[1]->isMonitor(), true);
        QCOMPARE(tracks[2]->isSolo(), false);
        QCOMPARE(player->stemGain(tracks[0]->id()), 0.0f);
        QCOMPARE(player->stemGain(tracks[1]->id()), 1.0f);
        // Monitoring another moves it there.
        player->setMonitor(true, tracks[2]->id());
        QCOMPARE(tracks[1]->isMonitor(), false);
        QCOMPARE(tracks[1]->isSolo(), false);
        QCOMPARE(tracks[2]->isMonitor(), true);
        player->setSolo(true, tracks[0]->id());
        player->setMonitor(false, tracks[2]->id());
        QCOMPARE(tracks[2]->isMonitor(), false);
        QCOMPARE(tracks[2]->isSolo(), false);
        QCOMPARE(tracks[0]->isSolo(), true); // others untouched
        QCOMPARE(player->stemGain(tracks[2]->id()), 0.0f);
        QCOMPARE(player->stemGain(tracks[0]->id()), 1.0f);
    }

    void seekClampsToTheSong_data() {
        QTest::addColumn<double>("target");
        QTest::addColumn<double>("landed");
        QTest::newRow("inside") << 12.5 << 12.5;
        QTest::newRow("beyond the end") << 99.0 << 32.0;
        QTest::newRow("exactly the end") << 32.0 << 32.0;
        QTest::newRow("negative") << -3.0 << 0.0;
    }
    void seekClampsToTheSong() {
        QFETCH(double, target);
        QFETCH(double, landed);
        Player player;
        player.load({track("long", file("long.wav"))});
        QCOMPARE(player->duration(), 32.0);
        QSignalSpy playing(player.service.get(), &AudioPlayerService::isPlayingChanged);
        player->seek(target);
        QCOMPARE(player->currentTime(), landed);
        QCOMPARE(player->isPlaying(), false); // seeking while paused does not start playback
        QCOMPARE(playing.count(), 0);
    }

    void seekingWhilePlayingRestartsFromThere() {
        Player player;
        player.load({track("long", file("long.wav"))});
        player->play();
        player.pull(lead + rate);
        player->seek(10.0);
        QVERIFY(player->isPlaying());
        const std::vector<float> out = player.pull(lead + 200);
        QCOMPARE(framesAbove(out, 0.25f), std::vector<int64_t>{lead + 100});
        player->meterTick();
        QCOMPARE(player->currentTime(), 10.0 + 200.0 / rate);
    }

    void pauseAt30sThenPlayResumesAt30s() {
        Player player;
        player.load({track("long", file("long.wav"))});
        player->play();
        player.pull(lead + 30 * rate);
        player->meterTick();
        QCOMPARE(player->currentTime(), 30.0);
        player->pause();
        QCOMPARE(player->isPlaying(), false);
        QCOMPARE(player->currentTime(), 30.0);
        QCOMPARE(framesAbove(player.pull(rate), 1e-6f).size(), size_t(0)); // silence while paused
        player->meterTick();
        QCOMPARE(player->currentTime(), 30.0);
        player->play();
        const std::vector<float> out = player.pull(lead + rate);
        // The impulse at 30 s + 100 frames comes 100 frames after the new start instant.
        QCOMPARE(framesAbove(out, 0.25f), std::vector<int64_t>{lead + 100});
        player->meterTick();
        QCOMPARE(player->currentTime(), 31.0);
    }

    void theClockCountsRenderedFramesFromTheStartInstant() {
        Player player;
        player.load({track("long", file("long.wav"))});
        player->play();
        QCOMPARE(player->playbackPosition(), 0.0);
        player.pull(lead); // the 50 ms lead is not playback
        QCOMPARE(player->playbackPosition(), 0.0);
        player.pull(441);
        QCOMPARE(player->playbackPosition(), 0.01);
    }

    void theLoopJumpsBackAtItsEnd() {
        Player player;
        player.load({track("long", file("long.wav"))});
        player->setLoopStart(1.0);
        player->setLoopEnd(2.0);
        player->setLoopEnabled(true);
        player->seek(1.5);
        player->play();
        player.pull(lead + rate / 2 + 10);
        player->meterTick();
        QCOMPARE(player->currentTime(), 1.0);
        QVERIFY(player->isPlaying());
        const std::vector<float> out = player.pull(lead + 200);
        QCOMPARE(framesAbove(out, 0.25f), std::vector<int64_t>{lead + 100});
    }

    void aLoopThatDoesNotEndAfterItsStartIsIgnored_data() {
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("end");
        QTest::newRow("start after end") << 2.0 << 1.0;
        QTest::newRow("empty loop") << 1.0 << 1.0;
    }
    void aLoopThatDoesNotEndAfterItsStartIsIgnored() {
        QFETCH(double, start);
        QFETCH(double, end);
        Player player;
        player.load({track("long", file("long.wav"))});
        player->setLoopStart(start);
        player->setLoopEnd(end);
        player->setLoopEnabled(true);
        player->seek(31.0);
        player->play();
        player.pull(lead + rate / 2);
        player->meterTick();
        QVERIFY(player->isPlaying());
        QCOMPARE(player->currentTime(), 31.5);
        player.pull(rate);
        player->meterTick();
        QCOMPARE(player->isPlaying(), false);
        QCOMPARE(player->currentTime(), 0.0);
    }

    void theEndOfTheSongStopsAndRewinds() {
        Player player;
        player.load(threeStems());
        QSignalSpy stopped(player.service.get(), &AudioPlayerService::isPlayingChanged);
        player->play();
        player.pull(lead + rate - 1);
        player->meterTick();
        QVERIFY(player->isPlaying());
        player.pull(1);
        player->meterTick();
        QCOMPARE(player->isPlaying(), false);
        QCOMPARE(player->currentTime(), 0.0);
        QCOMPARE(stopped.count(), 2);
        // Play again: from the top.
        player->play();
        QCOMPARE(framesAbove(player.pull(lead + 1001), 1e-6f), std::vector<int64_t>{lead + 1000});
    }

    void stopRewindsAndSilences() {
        Player player;
        player.load({track("long", file("long.wav"))});
        player->play();
        player.pull(lead + 3 * rate);
        player->meterTick();
        player->stop();
        QCOMPARE(player->currentTime(), 0.0);
        QCOMPARE(framesAbove(player.pull(rate), 1e-6f).size(), size_t(0));
    }

    void metersFollowTheGainWhilePlayingAndDecayAfterStop() {
        Player player;
        const QList<StemTrackPtr> tracks = threeStems();
        player.load(tracks);
        player->setVolume(tracks[0]->id(), 0.5f);
        player->setMuted(true, tracks[2]->id());
        player->play();
        tracks[2]->setVuLevel(0.5f); // a muted track decays even while playing
        for (int tick = 0; tick < 50; ++tick) {
            player->meterTick();
            QVERIFY(tracks[0]->vuLevel() >= 0.5f * 0.2f && tracks[0]->vuLevel() <= 0.5f * 0.85f);
            QVERIFY(tracks[1]->vuLevel() >= 0.2f && tracks[1]->vuLevel() <= 0.85f);
            QVERIFY(tracks[0]->peakLevel() >= tracks[0]->vuLevel());
        }
        QVERIFY(tracks[2]->vuLevel() < 0.5f * std::pow(0.88f, 49.0f));
        player->stop();
        for (int tick = 0; tick < 20; ++tick) {
            const float vu = tracks[1]->vuLevel(), peak = tracks[1]->peakLevel();
            player->meterTick();
            QCOMPARE(tracks[1]->vuLevel(), vu * 0.88f);
            QCOMPARE(tracks[1]->peakLevel(), std::max(peak * 0.96f, vu * 0.88f));
        }
        int ticks = 0;
        while ((tracks[1]->vuLevel() > 0.0f || tracks[1]->peakLevel() > 0.0f) && ticks < 5000) {
            player->meterTick();
            ++ticks;
        }
        QCOMPARE(tracks[1]->vuLevel(), 0.0f);
        QCOMPARE(tracks[1]->peakLevel(), 0.0f);
    }

    void aNewLoadReplacesTheOldOne() {
        Player player;
        player.load(threeStems());
        player->seek(0.5);
        player.load({track("long", file("long.wav"))});
        QCOMPARE(player->duration(), 32.0);
        QCOMPARE(player->currentTime(), 0.0);
        QCOMPARE(player->loadedTracks().size(), 1);
        player->play();
        const std::vector<float> out = player.pull(lead + 2000);
        QCOMPARE(framesAbove(out, 1e-6f), std::vector<int64_t>{lead + 100});
    }

    void aLoadStartedLaterWinsOverOneStillOpeningItsFiles() {
        Player player;
        QCoro::Task<> first = player->loadTracks(threeStems());
        QCoro::Task<> second = player->loadTracks({track("long", file("long.wav"))});
        QCoro::waitFor(first);
        QCoro::waitFor(second);
        QCOMPARE(player->loadedTracks().size(), 1);
        QCOMPARE(player->duration(), 32.0);
    }

    void stemsOfAnotherRatePlayInSync() {
        writeWav(file("r48.wav"), 2, 48000, impulses(2 * 48000, 2, {48000}, 0.3f));
        writeWav(file("r44.wav"), 2, rate, impulses(2 * rate, 2, {rate}, 0.3f));
        Player player;
        player.load({track("a", file("r48.wav")), track("b", file("r44.wav"))});
        player->play();
        const std::vector<float> out = player.pull(lead + 2 * rate);
        QCOMPARE(out[2 * (lead + rate)] > 0.55f, true); // both impulses on the same sample
    }

    void anEngineThatCannotStartIsReportedAndPlayTriesAgainSilently() {
        Player player([] { return std::make_unique<FailingOutput>(); });
        player.load(threeStems());
        QCOMPARE(player.lines, QStringList{"[AudioPlayer] Engine start failed: périphérique occupé"});
        QCOMPARE(player->loadedTracks().size(), 3);
        player->play();
        QVERIFY(player->isPlaying());
        player->meterTick();
        QCOMPARE(player->currentTime(), 0.0);
        QCOMPARE(player.lines.size(), 1);
    }

    void withoutADeviceTheNullOutputKeepsTheClockAndMetersGoing() {
        Player player([] { return std::make_unique<NullOutput>(rate, 256); });
        const QList<StemTrackPtr> tracks{track("long", file("long.wav"))};
        player.load(tracks);
        QVERIFY(player.lines.isEmpty());
        player->play();
        QTRY_VERIFY(player->playbackPosition() > 0.05);
        player->meterTick();
        QVERIFY(player->currentTime() > 0.05);
        QVERIFY(tracks[0]->vuLevel() > 0.0f);
    }

    void theMeterTimerRunsByItself() {
        AudioPlayerConfig config;
        config.createOutput = [] { return std::make_unique<NullOutput>(rate, 256); };
        config.console = [](const QString&) {};
        AudioPlayerService player(config);
        const QList<StemTrackPtr> tracks{track("long", file("long.wav"))};
        QCoro::waitFor(player.loadTracks(tracks));
        player.play();
        QTRY_VERIFY(tracks[0]->vuLevel() > 0.0f && player.currentTime() > 0.1);
    }
};

QTEST_GUILESS_MAIN(AudioPlayerServiceTest)
#include "AudioPlayerServiceTest.moc"
