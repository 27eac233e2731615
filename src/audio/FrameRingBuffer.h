#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

// A lock-free single-producer, single-consumer ring of interleaved float frames.
// Positions are monotonic frame counts (never wrapped), so "how much is there" is a subtraction.
// The producer thread calls write(); the consumer thread calls read(), mixInto(), skip() and discardTo().
// Nothing here allocates after construction.
class FrameRingBuffer {
public:
    // `minimumFrames` is rounded up to a power of two.
    FrameRingBuffer(size_t minimumFrames, int channels);

    FrameRingBuffer(const FrameRingBuffer&) = delete;
    FrameRingBuffer& operator=(const FrameRingBuffer&) = delete;

    size_t capacityFrames() const { return m_capacity; }
    int channels() const { return m_channels; }

    // Either side.
    uint64_t writePosition() const { return m_write.load(std::memory_order_acquire); }
    uint64_t readPosition() const { return m_read.load(std::memory_order_acquire); }
    size_t readableFrames() const;
    size_t writableFrames() const;

    // Producer: copies up to `frames` frames in; returns how many fitted.
    size_t write(const float* interleaved, size_t frames);

    // Consumer: at most `frames` frames and never past `limit` (a write position seen earlier).
    size_t read(float* interleaved, size_t frames, uint64_t limit);
    // Consumer: adds gain × the next frames to `interleaved` and consumes them; returns how many.
    size_t mixInto(float* interleaved, size_t frames, float gain, uint64_t limit);
    // Consumer: drops up to `frames` frames; returns how many.
    size_t skip(size_t frames, uint64_t limit);
    // Consumer: moves the read position forward to `position` (never backwards, never past the writer).
    void discardTo(uint64_t position);

private:
    size_t available(uint64_t limit) const;

    const size_t m_capacity;
    const size_t m_mask;
    const int m_channels;
    std::vector<float> m_samples;
    alignas(64) std::atomic<uint64_t> m_write{0};
    alignas(64) std::atomic<uint64_t> m_read{0};
};
