#pragma once

#include "AudioFileReader.h"
#include "FrameRingBuffer.h"
#include "StereoConverter.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

// One stem in the engine: its file, a gain, and a ring of stereo frames at the output rate.
//
// Three threads meet here. The main thread schedules segments (schedule) and sets the gain. The reader
// thread (pump) decodes the scheduled segment into the ring. The render thread (render) sums the ring into
// the output, taking no lock and allocating nothing. Each schedule opens a new generation; the reader marks
// where that generation's frames begin and writes none of them until the render thread has dropped the
// older frames before that mark, so the ring never mixes two generations.
class StemVoice {
public:
    static constexpr int64_t chunkFrames = 4096; // source frames decoded per pump

    // Throws AudioFileError when the file cannot be converted to the output rate.
    StemVoice(std::unique_ptr<AudioFileReader> file, int outputRate, size_t ringFrames);

    const AudioFileReader& file() const { return *m_file; }

    // Main thread. Replaces whatever was scheduled by `frameCount` source frames from `startFrame`
    // (0 frames: nothing, which discards what the ring holds).
    void schedule(int64_t startFrame, int64_t frameCount);
    void setGain(float gain) { m_gain.store(gain, std::memory_order_relaxed); }
    float gain() const { return m_gain.load(std::memory_order_relaxed); }

    // Reader thread: one step of work. Returns whether it did anything.
    bool pump();
    // Reader thread: whether the current segment still has frames to decode or deliver.
    bool hasWorkLeft() const;

    // Render thread: takes up a new generation once the reader has marked it.
    void acknowledge();
    // Render thread: adds this stem's frames for [blockStart, blockStart + frames) of the engine's timeline
    // to `out` (stereo interleaved); the segment began at engine frame `segmentStart` (< 0: halted).
    void render(float* out, size_t frames, int64_t blockStart, int64_t segmentStart);
    // Render thread (or the thread driving a pull output): the next `frames` frames of the current
    // generation are in the ring, or the segment has ended.
    bool isPrimed(size_t frames) const;

    // Frames the render thread had to skip because the ring ran dry (any thread; for diagnostics).
    uint64_t underrunFrames() const { return m_underruns.load(std::memory_order_relaxed); }

private:
    struct Segment {
        uint32_t generation;
        int64_t startFrame;
        int64_t frameCount;
    };

    void beginSegment(const Segment& segment);
    bool deliverConverted();

    std::unique_ptr<AudioFileReader> m_file;
    StereoConverter m_converter;
    FrameRingBuffer m_ring;
    std::atomic<float> m_gain{1.0f};

    // Main thread → reader thread.
    std::mutex m_commandMutex;
    std::optional<Segment> m_pending;
    uint32_t m_lastGeneration = 0; // main thread only
    std::atomic<uint32_t> m_wantedGeneration{0};
    // Reader thread → render thread.
    std::atomic<uint32_t> m_producedGeneration{0};
    std::atomic<uint64_t> m_generationStart{0};
    std::atomic<uint32_t> m_endedGeneration{0};
    // Render thread → reader thread.
    std::atomic<uint32_t> m_consumedGeneration{0};
    std::atomic<uint64_t> m_underruns{0};

    // Reader thread only.
    int64_t m_remaining = 0;
    bool m_needsFlush = false;
    std::vector<float> m_readBuffer;
    std::vector<float> m_converted;
    size_t m_convertedOffset = 0; // frames of m_converted already in the ring

    // Render thread only.
    uint32_t m_current = 0; // generation being played
    int64_t m_position = 0; // frames of the segment accounted for (played or skipped)
    uint64_t m_owed = 0;    // frames to drop from the ring before playing (after running dry)
};
