#include "audio/WaveformRenderer.h"
#include "audio/PeakEnvelope.h"
#include "audio/TestSignals.h"
#include "support/FFmpegFixture.h"

#include <QCoro/QCoroTask>
#include <QMutex>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

using namespace TestSignals;

namespace {
// Console lines written by one renderer, from whatever thread.
struct Lines {
    QMutex mutex;
    QStringList lines;
    ConsoleLineSink sink() {
        return [this](const QString& line) {
            QMutexLocker lock(&mutex);
            lines.append(line);
        };
    }
    QStringList take() {
        QMutexLocker lock(&mutex);
        return std::exchange(lines, {});
    }
};

bool allZero(const QList<float>& values) {
    return std::all_of(values.cbegin(), values.cend(), [](float value) { return value == 0.0f; });
}
} // namespace

class WaveformRendererTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    Lines m_lines;
    WaveformRenderer m_renderer{m_lines.sink()};

    QString file(const QString& name) const { return m_dir.filePath(name); }

    // Makes `name` with ffmpeg from the arguments; returns its path.
    QString ffmpeg(const QStringList& arguments, const QString& name) const {
        if (!TestSupport::makeWithFFmpeg(arguments + QStringList{file(name)}))
            qFatal("cannot make the fixture %s", qPrintable(name));
        return file(name);
    }

    // What `ffmpeg -i FILE -ac 1 -f f32le` decodes: the reference mono signal.
    std::vector<float> ffmpegMono(const QString& path) const {
        QProcess process;
        process.start(QStringLiteral("ffmpeg"),
                      {"-hide_banner", "-loglevel", "error", "-i", path, "-ac", "1", "-f", "f32le", "-"});
        process.waitForFinished(30000);
        const QByteArray bytes = process.readAllStandardOutput();
        std::vector<float> samples(static_cast<size_t>(bytes.size()) / sizeof(float));
        std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(float));
        return samples;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_dir.isValid()); }
    void init() { m_lines.take(); }

    void theStreamingDecoderFollowsTheBucketRule_data() {
        QTest::addColumn<int>("samples");
        QTest::addColumn<int>("points");
        QTest::newRow("3000") << 3000 << 3000;
        QTest::newRow("3600") << 3600 << 1800;
        QTest::newRow("3601") << 3601 << 1801;
    }
    void theStreamingDecoderFollowsTheBucketRule() {
        QFETCH(int, samples);
        QFETCH(int, points);
        writeWav(file("n.wav"), 1, 8000, sine(samples, 1, 8000, 440.0, 0.5f));
        const QList<float> envelope = m_renderer.decodeWithAssetReader(file("n.wav"), 1800);
        QCOMPARE(envelope.size(), points);
        QCOMPARE(*std::max_element(envelope.cbegin(), envelope.cend()), 1.0f);
        QCOMPARE(m_lines.take(),
                 QStringList{QStringLiteral("[Waveform] AVAssetReader ✅ n.wav: %1 pts").arg(points)});
    }

    void theDirectDecoderFollowsTheBucketRule_data() { theStreamingDecoderFollowsTheBucketRule_data(); }
    void theDirectDecoderFollowsTheBucketRule() {
        QFETCH(int, samples);
        QFETCH(int, points);
        writeWav(file("d.wav"), 1, 8000, sine(samples, 1, 8000, 440.0, 0.5f));
        const QList<float> envelope = m_renderer.decodeWithAudioFile(file("d.wav"), 1800);
        QCOMPARE(envelope.size(), points);
        QCOMPARE(m_lines.take(),
                 QStringList{QStringLiteral("[Waveform] AVAudioFile ✅ d.wav: %1 pts").arg(points)});
    }

    void aStereoFileIsMixedDownToMono() {
        // Left channel only: a peak of 0.8 in bucket 10; right channel only: 0.4 in bucket 20.
        std::vector<float> frames(2 * 3600, 0.0f);
        frames[2 * 20] = 0.8f;
        frames[2 * 40 + 1] = -0.4f;
        writeWav(file("stereo.wav"), 2, 44100, frames);
        for (const QList<float>& envelope : {m_renderer.decodeWithAssetReader(file("stereo.wav"), 1800),
                                             m_renderer.decodeWithAudioFile(file("stereo.wav"), 1800)}) {
            QCOMPARE(envelope.size(), 1800);
            QCOMPARE(envelope[10], 1.0f);
            QCOMPARE(envelope[20], 0.5f);
            QCOMPARE(std::count(envelope.cbegin(), envelope.cend(), 0.0f), qsizetype(1798));
        }
    }

    void silenceGivesZerosButTheDirectDecoderDropsASilentTail() {
        writeWav(file("silence.wav"), 2, 44100, std::vector<float>(2 * 3601, 0.0f));
        const QList<float> streamed = m_renderer.decodeWithAssetReader(file("silence.wav"), 1800);
        QCOMPARE(streamed.size(), 1801);
        QVERIFY(allZero(streamed));
        const QList<float> direct = m_renderer.decodeWithAudioFile(file("silence.wav"), 1800);
        QCOMPARE(direct.size(), 1800);
        QVERIFY(allZero(direct));
        QCOMPARE(m_lines.take(), (QStringList{"[Waveform] AVAssetReader ✅ silence.wav: 1801 pts",
                                              "[Waveform] AVAudioFile ✅ silence.wav: 1800 pts"}));
    }

    void aDirectDecodeOfNothingIsMarkedAsFailed() {
        writeWav(file("empty.wav"), 1, 44100, {});
        QVERIFY(m_renderer.decodeWithAudioFile(file("empty.wav"), 1800).isEmpty());
        QCOMPARE(m_lines.take(), QStringList{"[Waveform] AVAudioFile ❌ empty.wav: 0 pts"});
    }

    void anEmptyStreamFallsThroughToTheDirectDecoder() {
        writeWav(file("empty.wav"), 1, 44100, {});
        QVERIFY(QCoro::waitFor(m_renderer.render(file("empty.wav"), 1800)).isEmpty());
        QCOMPARE(m_lines.take(), QStringList{"[Waveform] AVAudioFile ❌ empty.wav: 0 pts"});
    }

    void aFileWithoutAudioFallsThroughToTheDirectDecoder() {
        const QString video =
            ffmpeg({"-f", "lavfi", "-i", "testsrc=d=0.2:s=32x32", "-c:v", "mpeg4"}, "video.mkv");
        QVERIFY(QCoro::waitFor(m_renderer.render(video, 1800)).isEmpty());
        QCOMPARE(m_lines.take(), QStringList{"[Waveform] AVAudioFile ❌ cannot open video.mkv"});
    }

    void anUnreadableFileGivesNothingAndTheCannotOpenLine_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::newRow("garbage") << QByteArray("this is not audio at all, just some words");
        QTest::newRow("truncated RIFF header") << QByteArray("RIFF\x24\x00\x00\x00WAVEfmt ", 16);
        QTest::newRow("empty file") << QByteArray();
        QTest::newRow("random bytes") << QByteArray(4096, '\xA7');
    }
    void anUnreadableFileGivesNothingAndTheCannotOpenLine() {
        QFETCH(QByteArray, contents);
        QFile bad(file("bad.wav"));
        QVERIFY(bad.open(QIODevice::WriteOnly));
        bad.write(contents);
        bad.close();
        QVERIFY(QCoro::waitFor(m_renderer.render(file("bad.wav"), 1800)).isEmpty());
        QCOMPARE(m_lines.take(), QStringList{"[Waveform] AVAudioFile ❌ cannot open bad.wav"});
    }

    void aMissingFileGivesNothing() {
        QVERIFY(QCoro::waitFor(m_renderer.render(file("nowhere.wav"), 1800)).isEmpty());
        QCOMPARE(m_lines.take(), QStringList{"[Waveform] AVAudioFile ❌ cannot open nowhere.wav"});
    }

    void anyContainerMatchesWhatFFmpegDecodes_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("codec");
        QTest::newRow("WAV 16-bit") << "s.wav" << QStringList{"-c:a", "pcm_s16le"};
        QTest::newRow("FLAC") << "s.flac" << QStringList{};
        QTest::newRow("MP3") << "s.mp3" << QStringList{"-c:a", "libmp3lame", "-b:a", "128k"};
        QTest::newRow("Ogg Vorbis") << "s.ogg" << QStringList{"-c:a", "libvorbis"};
        QTest::newRow("AAC in M4A") << "s.m4a" << QStringList{"-c:a", "aac"};
    }
    void anyContainerMatchesWhatFFmpegDecodes() {
        QFETCH(QString, name);
        QFETCH(QStringList, codec);
        // Two tones, one per channel, with a swell, 3.3 s long.
        const QString path =
            ffmpeg(QStringList{"-f", "lavfi", "-i",
                               "aevalsrc=0.6*sin(2*PI*220*t)*t/3.3|0.3*sin(2*PI*330*t):s=44100:d=3.3"} +
                       codec,
                   name);
        const std::vector<float> reference = ffmpegMono(path);
        QVERIFY(reference.size() > 100000);
        const QList<float> expected =
            PeakEnvelope::ofSignal(reference.data(), static_cast<int64_t>(reference.size()), 1800);
        const QList<float> envelope = QCoro::waitFor(m_renderer.render(path, 1800));
        QCOMPARE(envelope.size(), expected.size());
        for (qsizetype i = 0; i < envelope.size(); ++i)
            QVERIFY2(std::fabs(envelope[i] - expected[i]) < 1e-4f, qPrintable(QString::number(i)));
        QCOMPARE(m_lines.take(),
                 QStringList{
                     QStringLiteral("[Waveform] AVAssetReader ✅ %1: %2 pts").arg(name).arg(expected.size())});
    }

    void noPointsAskedGivesNothing() {
        writeWav(file("z.wav"), 1, 8000, sine(800, 1, 8000, 440.0, 0.5f));
        QVERIFY(m_renderer.decodeWithAssetReader(file("z.wav"), 0).isEmpty());
        QVERIFY(m_renderer.decodeWithAudioFile(file("z.wav"), 0).isEmpty());
    }

    void severalStemsRenderConcurrently() {
        for (int i = 0; i < 4; ++i)
            writeWav(file(QStringLiteral("c%1.wav").arg(i)), 2, 44100,
                     sine(45000 + i, 2, 44100, 100.0 * (i + 1), 0.5f));
        const QList<float> first = QCoro::waitFor([this]() -> QCoro::Task<QList<float>> {
            auto a = m_renderer.render(file("c0.wav"), 1800);
            auto b = m_renderer.render(file("c1.wav"), 1800);
            auto c = m_renderer.render(file("c2.wav"), 1800);
            auto d = m_renderer.render(file("c3.wav"), 1800);
            QList<float> result = co_await a;
            co_await b;
            co_await c;
            co_await d;
            co_return result;
        }());
        QCOMPARE(first.size(), 1800);
        QCOMPARE(m_lines.take().size(), 4);
    }
};

QTEST_GUILESS_MAIN(WaveformRendererTest)
#include "WaveformRendererTest.moc"
