#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

class StemVoice;

// The render core: one callback that sums every stem through its gain, on one timeline of engine frames,
// so the stems cannot drift apart. The transport is two atomics: the frames rendered so far, and the
// engine frame at which the scheduled segments start (negative while halted).
class MixRenderer {
public:
    explicit MixRenderer(int sampleRate)
        : m_sampleRate(sampleRate) {}

    int sampleRate() const { return m_sampleRate; }
    // Only while no render runs.
    void setVoices(std::vector<StemVoice*> voices) { m_voices = std::move(voices); }

    // Main thread: the scheduled segments start `seconds` from the current render position; returns that
    // engine frame.
    int64_t startAfter(double seconds);
    // Main thread: nothing plays until the next startAfter().
    void halt() { m_startFrame.store(-1); }
    bool isStarted() const { return m_startFrame.load() >= 0; }
    int64_t renderedFrames() const { return m_rendered.load(std::memory_order_acquire); }
    // Frames rendered since the start frame (0 before it, and while halted).
    int64_t framesPlayed() const;

    // Render thread.
    void render(float* out, size_t frames) noexcept;
    // Render thread (or the thread driving a pull output): voices take up their newest generation.
    void acknowledge() noexcept;
    // The next `frames` frames of every voice are ready.
    bool isPrimed(size_t frames) const;

private:
    const int m_sampleRate;
    std::vector<StemVoice*> m_voices;
    std::atomic<int64_t> m_startFrame{-1};
    std::atomic<int64_t> m_rendered{0};
};
