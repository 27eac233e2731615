#include "audio/AudioEngine.h"
#include "audio/AudioFileError.h"
#include "audio/NullOutput.h"
#include "audio/PullOutput.h"
#include "audio/TestSignals.h"

#include <QTemporaryDir>
#include <QtTest>
#include <mutex>

using namespace TestSignals;

namespace {
constexpr int rate = 44100;
constexpr int64_t lead = 2205; // 50 ms at 44.1 kHz

struct PulledEngine {
    PullOutput* output;
    AudioEngine engine;
    PulledEngine()
        : PulledEngine(std::make_unique<PullOutput>(rate)) {}
    explicit PulledEngine(std::unique_ptr<PullOutput> pull)
        : output(pull.get())
        , engine(std::move(pull)) {}
    StemVoice& add(const QString& path) { return engine.addVoice(std::make_unique<AudioFileReader>(path)); }
    void playAll(int64_t startFrame = 0) {
        for (const auto& voice : engine.voices())
            engine.schedule(*voice, startFrame, voice->file().frames() - startFrame);
        engine.startAfter(0.05);
    }
};
} // namespace

class AudioEngineTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    QString file(const QString& name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    void stemsComeOutSummedOnTheExactSampleWithTheirGains() {
        writeWav(file("a.wav"), 2, rate, impulses(rate, 2, {0, 1000, 30000}, 0.5f));
        writeWav(file("b.wav"), 2, rate, impulses(rate, 2, {1000, 20000}, 0.25f));
        PulledEngine p;
        p.add(file("a.wav")).setGain(1.0f);
        p.add(file("b.wav")).setGain(0.8f);
        p.engine.start();
        p.playAll();
        const std::vector<float> out = p.output->pull(lead + rate);
        QCOMPARE(framesAbove(out, 1e-6f),
                 (std::vector<int64_t>{lead, lead + 1000, lead + 20000, lead + 30000}));
        QCOMPARE(out[2 * lead], 0.5f);
        QCOMPARE(out[2 * (lead + 1000)], 0.5f + 0.8f * 0.25f);
        QCOMPARE(out[2 * (lead + 1000) + 1], 0.5f + 0.8f * 0.25f);
        QCOMPARE(out[2 * (lead + 20000)], 0.8f * 0.25f);
        QCOMPARE(p.engine.framesPlayed(), int64_t(rate));
    }

    void oddBlockSizesChangeNothing_data() {
        QTest::addColumn<int>("block");
        QTest::newRow("1") << 1;
        QTest::newRow("64") << 64;
        QTest::newRow("511") << 511;
        QTest::newRow("4097") << 4097;
    }
    void oddBlockSizesChangeNothing() {
        QFETCH(int, block);
        writeWav(file("c.wav"), 2, rate, impulses(20000, 2, {0, 4096, 4097, 19999}));
        PulledEngine p;
        p.add(file("c.wav"));
        p.engine.start();
        p.playAll();
        std::vector<float> all;
        while (all.size() < static_cast<size_t>(2 * (lead + 20000 + 100))) {
            const std::vector<float> chunk = p.output->pull(static_cast<size_t>(block));
            all.insert(all.end(), chunk.begin(), chunk.end());
        }
        QCOMPARE(framesAbove(all, 0.5f),
                 (std::vector<int64_t>{lead, lead + 4096, lead + 4097, lead + 19999}));
    }

    void aSegmentStartsAtItsFirstFrame() {
        writeWav(file("d.wav"), 1, rate, impulses(rate, 1, {100, 22050, 30000}));
        PulledEngine p;
        p.add(file("d.wav"));
        p.engine.start();
        p.playAll(22050);
        const std::vector<float> out = p.output->pull(lead + 10000);
        QCOMPARE(framesAbove(out, 0.5f), (std::vector<int64_t>{lead, lead + 30000 - 22050}));
        // A mono stem plays at full level on both sides.
        QCOMPARE(out[2 * lead], 1.0f);
        QCOMPARE(out[2 * lead + 1], 1.0f);
    }

    void haltingDiscardsWhatWasScheduledAndANewSegmentPlaysAlone() {
        writeWav(file("e.wav"), 2, rate, impulses(rate * 3, 2, {5000, 100000}));
        PulledEngine p;
        StemVoice& voice = p.add(file("e.wav"));
        p.engine.start();
        p.playAll();
        p.output->pull(lead + 1000); // the ring is now full of the segment from 0
        p.engine.halt();
        p.engine.schedule(voice, 0, 0);
        QCOMPARE(framesAbove(p.output->pull(20000), 1e-6f).size(), size_t(0));
        p.engine.schedule(voice, 99000, voice.file().frames() - 99000);
        p.engine.startAfter(0.05);
        QCOMPARE(framesAbove(p.output->pull(lead + 5000), 0.5f), (std::vector<int64_t>{lead + 1000}));
    }

    void theEndOfTheShortestStemIsSilenceWhileTheOthersGoOn() {
        writeWav(file("short.wav"), 2, rate, std::vector<float>(2 * 1000, 0.1f));
        writeWav(file("long.wav"), 2, rate, impulses(rate, 2, {2000, 40000}));
        PulledEngine p;
        p.add(file("short.wav"));
        p.add(file("long.wav"));
        p.engine.start();
        p.playAll();
        const std::vector<float> out = p.output->pull(lead + rate + 500);
        QCOMPARE(out[2 * (lead + 999)], 0.1f);
        QCOMPARE(out[2 * (lead + 1000)], 0.0f);
        QCOMPARE(framesAbove(out, 0.5f), (std::vector<int64_t>{lead + 2000, lead + 40000}));
        QCOMPARE(out[2 * (lead + rate + 100)], 0.0f);
    }

    void stemsOfAnotherRateAreResampledOntoTheSameTimeline_data() {
        QTest::addColumn<int>("fileRate");
        QTest::newRow("48 kHz") << 48000;
        QTest::newRow("22.05 kHz") << 22050;
        QTest::newRow("96 kHz") << 96000;
    }
    void stemsOfAnotherRateAreResampledOntoTheSameTimeline() {
        QFETCH(int, fileRate);
        // An impulse one second in, in a file of another rate, beside one at 44.1 kHz.
        writeWav(file("other.wav"), 2, fileRate, impulses(2 * fileRate, 2, {fileRate}));
        writeWav(file("native.wav"), 2, rate, impulses(2 * rate, 2, {rate}));
        PulledEngine p;
        StemVoice& other = p.add(file("other.wav"));
        StemVoice& native = p.add(file("native.wav"));
        native.setGain(0.0f);
        p.engine.start();
        p.playAll();
        const std::vector<float> out = p.output->pull(lead + 2 * rate + 2000);
        int64_t peak = 0;
        for (int64_t i = 0; i < static_cast<int64_t>(out.size() / 2); ++i)
            if (std::fabs(out[2 * i]) > std::fabs(out[2 * peak]))
                peak = i;
        QVERIFY2(std::abs(peak - (lead + rate)) <= 1, qPrintable(QString::number(peak - lead)));
        QVERIFY(out[2 * peak] > 0.4f);
        QCOMPARE(other.underrunFrames(), uint64_t(0));
    }

    void memoryStaysBoundedWhateverTheLength() {
        writeWav(file("long.wav"), 2, rate, std::vector<float>(2 * rate * 20, 0.2f));
        PulledEngine p;
        StemVoice& voice = p.add(file("long.wav"));
        p.engine.start();
        p.playAll();
        // Twenty seconds stream through a ring of about three.
        for (int i = 0; i < 20; ++i)
            p.output->pull(rate);
        QCOMPARE(voice.underrunFrames(), uint64_t(0));
        const std::vector<float> out = p.output->pull(lead);
        QCOMPARE(out[2 * (lead - 1)], 0.2f);
        QCOMPARE(p.output->pull(1)[0], 0.0f);
    }

    void anUnreadableFileIsRefused() {
        QFile garbage(file("garbage.wav"));
        QVERIFY(garbage.open(QIODevice::WriteOnly));
        garbage.write("RIFF not really a wave file at all");
        garbage.close();
        QVERIFY_THROWS_EXCEPTION(AudioFileError, AudioFileReader(file("garbage.wav")));
        QVERIFY_THROWS_EXCEPTION(AudioFileError, AudioFileReader(file("missing.wav")));
    }

    void theNullOutputRendersBlocksAtTheTimeTheyAreDue() {
        std::mutex mutex;
        std::vector<NullOutput::Clock::time_point> deadlines;
        auto output = std::make_unique<NullOutput>(1000, 250, [&](NullOutput::Clock::time_point when) {
            std::lock_guard lock(mutex);
            deadlines.push_back(when);
        });
        AudioEngine engine(std::move(output));
        engine.start();
        QVERIFY(engine.isRunning());
        QTRY_VERIFY(engine.renderedFrames() >= 2000);
        engine.stop();
        const int64_t rendered = engine.renderedFrames();
        QVERIFY(!engine.isRunning());
        std::lock_guard lock(mutex);
        QCOMPARE(static_cast<int64_t>(deadlines.size()) * 250, rendered);
        // Block k is due k × 250 ms after the start: the pace never drifts.
        for (size_t k = 1; k < deadlines.size(); ++k)
            QCOMPARE(deadlines[k] - deadlines[k - 1],
                     std::chrono::duration_cast<NullOutput::Clock::duration>(std::chrono::milliseconds(250)));
        QCOMPARE(engine.renderedFrames(), rendered); // nothing after stop
    }

    void theNullOutputPlaysAtTheClockRate() {
        writeWav(file("n.wav"), 2, rate, std::vector<float>(2 * rate, 0.3f));
        AudioEngine engine(std::make_unique<NullOutput>(rate));
        engine.addVoice(std::make_unique<AudioFileReader>(file("n.wav")));
        engine.start();
        engine.schedule(*engine.voices().front(), 0, rate);
        engine.startAfter(0.05);
        QTRY_VERIFY(engine.framesPlayed() > 0);
        QCOMPARE(engine.voices().front()->underrunFrames(), uint64_t(0));
    }

    void initTestCase() { QVERIFY(m_dir.isValid()); }
};

QTEST_GUILESS_MAIN(AudioEngineTest)
#include "AudioEngineTest.moc"
