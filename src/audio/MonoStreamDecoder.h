#pragma once

#include <QString>
#include <cstdint>
#include <functional>
#include <optional>

struct AVFormatContext;
struct AVCodecContext;
struct AVPacket;
struct AVFrame;
struct SwrContext;

// Decodes the audio of any container the FFmpeg libraries read, mixed down to mono 32-bit float at the
// stream's own rate, handing the samples over run by run without holding the whole signal.
class MonoStreamDecoder {
public:
    using Sink = std::function<void(const float* samples, int64_t count)>;

    MonoStreamDecoder() = default;
    ~MonoStreamDecoder();

    MonoStreamDecoder(const MonoStreamDecoder&) = delete;
    MonoStreamDecoder& operator=(const MonoStreamDecoder&) = delete;

    // Opens the container and finds its audio stream; false when it is not media or has no audio.
    bool open(const QString& path);
    int sampleRate() const { return m_sampleRate; }
    // The stream's length in samples when the container states it.
    std::optional<int64_t> expectedSamples() const;

    // Sets up the decoder and the mono mix-down; false with a reason when that fails.
    bool startReading(QString* reason);
    // Decodes to the end (damaged packets are skipped); returns how many samples went to `sink`.
    int64_t readAll(const Sink& sink);

private:
    void drainFrames(const Sink& sink, int64_t& total);

    AVFormatContext* m_format = nullptr;
    AVCodecContext* m_codec = nullptr;
    SwrContext* m_swr = nullptr;
    AVPacket* m_packet = nullptr;
    AVFrame* m_frame = nullptr;
    int m_stream = -1;
    int m_sampleRate = 0;
    float* m_mono = nullptr;
    int m_monoCapacity = 0;
};
