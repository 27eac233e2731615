#include "WaveformRenderer.h"

#include "AudioFileError.h"
#include "AudioFileReader.h"
#include "MonoStreamDecoder.h"
#include "PeakEnvelope.h"

#include <QCoro/QCoroFuture>
#include <QFileInfo>
#include <QThreadPool>
#include <QtConcurrent>
#include <memory>
#include <vector>

namespace {

QThreadPool& decodingPool() {
    static QThreadPool* pool = [] {
        auto* threads = new QThreadPool;
        threads->setThreadPriority(QThread::LowPriority);
        return threads;
    }();
    return *pool;
}

QString fileName(const QString& path) {
    return QFileInfo(path).fileName();
}

// The whole mono signal of a fresh decode, or nothing.
std::vector<float> decodeWhole(const QString& path, int targetSamples) {
    MonoStreamDecoder decoder;
    QString reason;
    std::vector<float> samples;
    if (!decoder.open(path) || !decoder.startReading(&reason))
        return samples;
    samples.reserve(static_cast<size_t>(targetSamples) * 100);
    decoder.readAll(
        [&](const float* run, int64_t count) { samples.insert(samples.end(), run, run + count); });
    return samples;
}

} // namespace

WaveformRenderer::WaveformRenderer(ConsoleLineSink console)
    : m_console(std::move(console)) {}

QCoro::Task<QList<float>> WaveformRenderer::render(QString path, int targetSamples) const {
    QList<float> envelope = co_await renderWithAssetReader(path, targetSamples);
    if (envelope.isEmpty())
        envelope = co_await renderWithAudioFile(path, targetSamples);
    co_return envelope;
}

QCoro::Task<QList<float>> WaveformRenderer::renderWithAssetReader(QString path, int targetSamples) const {
    // Awaited as a named future: g++ 12 destroys the captures twice in "co_return co_await run(…)".
    QFuture<QList<float>> decoded = QtConcurrent::run(
        &decodingPool(), [this, path, targetSamples] { return decodeWithAssetReader(path, targetSamples); });
    QList<float> envelope = co_await decoded;
    co_return envelope;
}

QCoro::Task<QList<float>> WaveformRenderer::renderWithAudioFile(QString path, int targetSamples) const {
    // Awaited as a named future: g++ 12 destroys the captures twice in "co_return co_await run(…)".
    QFuture<QList<float>> decoded = QtConcurrent::run(
        &decodingPool(), [this, path, targetSamples] { return decodeWithAudioFile(path, targetSamples); });
    QList<float> envelope = co_await decoded;
    co_return envelope;
}

QList<float> WaveformRenderer::renderNow(const QString& path, int targetSamples) const {
    QList<float> envelope = decodeWithAssetReader(path, targetSamples);
    return envelope.isEmpty() ? decodeWithAudioFile(path, targetSamples) : envelope;
}

QList<float> WaveformRenderer::decodeWithAssetReader(const QString& path, int targetSamples) const {
    if (targetSamples <= 0)
        return {};
    MonoStreamDecoder decoder;
    if (!decoder.open(path))
        return {};
    QString reason;
    if (!decoder.startReading(&reason)) {
        m_console(QStringLiteral("[Waveform] AVAssetReader failed: %1")
                      .arg(reason.isEmpty() ? QStringLiteral("?") : reason));
        return {};
    }
    QList<float> envelope;
    if (const std::optional<int64_t> expected = decoder.expectedSamples()) {
        // The length is known: reduce while reading. The result is the whole signal's envelope as long as
        // the decoded length gives the same bucket size; otherwise decode again, holding the signal.
        const int64_t bucket = PeakEnvelope::bucketSize(*expected, targetSamples);
        PeakEnvelope reducer(bucket, static_cast<qsizetype>(*expected / bucket + 1));
        const int64_t decoded =
            decoder.readAll([&](const float* run, int64_t count) { reducer.add(run, count); });
        if (decoded == 0)
            return {};
        if (PeakEnvelope::bucketSize(decoded, targetSamples) == bucket) {
            envelope = reducer.finish(true);
            PeakEnvelope::normalise(envelope);
        }
    }
    if (envelope.isEmpty()) {
        const std::vector<float> samples = decodeWhole(path, targetSamples);
        if (samples.empty())
            return {};
        envelope =
            PeakEnvelope::ofSignal(samples.data(), static_cast<int64_t>(samples.size()), targetSamples);
    }
    m_console(
        QStringLiteral("[Waveform] AVAssetReader ✅ %1: %2 pts").arg(fileName(path)).arg(envelope.size()));
    return envelope;
}

QList<float> WaveformRenderer::decodeWithAudioFile(const QString& path, int targetSamples) const {
    if (targetSamples <= 0)
        return {};
    std::unique_ptr<AudioFileReader> file;
    try {
        file = std::make_unique<AudioFileReader>(path);
    } catch (const AudioFileError&) {
        m_console(QStringLiteral("[Waveform] AVAudioFile ❌ cannot open %1").arg(fileName(path)));
        return {};
    }
    const int channels = file->channels();
    std::vector<float> chunk(static_cast<size_t>(directChunkFrames * channels));
    std::vector<float> mono(static_cast<size_t>(directChunkFrames));
    const int64_t bucket = PeakEnvelope::bucketSize(file->frames(), targetSamples);
    PeakEnvelope reducer(bucket, static_cast<qsizetype>(file->frames() / bucket + 1));
    for (int64_t read; (read = file->read(chunk.data(), directChunkFrames)) > 0;) {
        const float* frames = chunk.data();
        if (channels > 1) {
            for (int64_t i = 0; i < read; ++i) {
                float sum = 0.0f;
                for (int c = 0; c < channels; ++c)
                    sum += frames[i * channels + c];
                mono[static_cast<size_t>(i)] = sum / static_cast<float>(channels);
            }
            frames = mono.data();
        }
        reducer.add(frames, read);
    }
    QList<float> envelope = reducer.finish(false);
    PeakEnvelope::normalise(envelope);
    m_console(QStringLiteral("[Waveform] AVAudioFile %1 %2: %3 pts")
                  .arg(envelope.isEmpty() ? QStringLiteral("❌") : QStringLiteral("✅"), fileName(path))
                  .arg(envelope.size()));
    return envelope;
}
