#include "audio/PortAudioOutput.h"
#include "audio/AudioRenderSource.h"
#include "audio/SystemAudioOutput.h"

#include <QTemporaryDir>
#include <QtTest>
#include <atomic>

namespace {
// Counts the frames a device pulls and checks the buffers it is handed.
struct CountingSource : AudioRenderSource {
    std::atomic<uint64_t> frames{0};
    std::atomic<bool> sawNull{false};
    void render(float* out, size_t count) noexcept override {
        if (!out)
            sawNull = true;
        else
            std::fill(out, out + count * 2, 0.0f);
        frames += count;
    }
};
} // namespace

// Runs PortAudio against ALSA's "null" device, declared in a throw-away home's .asoundrc, so that a real
// PortAudio stream opens, runs and stops on any machine, with or without a sound card.
class PortAudioOutputTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_home;

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_home.isValid());
        QFile asoundrc(m_home.filePath(".asoundrc"));
        QVERIFY(asoundrc.open(QIODevice::WriteOnly));
        asoundrc.write("pcm.!default { type null }\n");
        asoundrc.close();
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qunsetenv("MARLUNE_AUDIO_OUTPUT");
    }

    void aStreamOnTheDefaultDeviceRunsUntilStopped() {
        PortAudioOutput output;
        QVERIFY(output.name().startsWith("PortAudio: "));
        QVERIFY(output.sampleRate() > 0);
        QVERIFY(!output.isRunning());
        CountingSource source;
        output.start(source);
        QVERIFY(output.isRunning());
        output.start(source); // already running: nothing happens
        QTRY_VERIFY(source.frames.load() > 4096);
        output.stop();
        QVERIFY(!output.isRunning());
        const uint64_t rendered = source.frames.load();
        QTest::qWait(50);
        QCOMPARE(source.frames.load(), rendered); // nothing after stop
        QVERIFY(!source.sawNull.load());
        // It can start again.
        output.start(source);
        QTRY_VERIFY(source.frames.load() > rendered);
        output.stop();
    }

    void theSystemOutputIsTheDeviceUnlessTheNullOutputIsAskedFor() {
        QVERIFY(createSystemAudioOutput()->name().startsWith("PortAudio: "));
        qputenv("MARLUNE_AUDIO_OUTPUT", "null");
        QCOMPARE(createSystemAudioOutput()->name(), QStringLiteral("null"));
        qunsetenv("MARLUNE_AUDIO_OUTPUT");
    }
};

QTEST_GUILESS_MAIN(PortAudioOutputTest)
#include "PortAudioOutputTest.moc"
