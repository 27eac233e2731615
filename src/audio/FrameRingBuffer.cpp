#include "FrameRingBuffer.h"

#include <algorithm>
#include <bit>
#include <cstring>

FrameRingBuffer::FrameRingBuffer(size_t minimumFrames, int channels)
    : m_capacity(std::bit_ceil(std::max<size_t>(minimumFrames, 2)))
    , m_mask(m_capacity - 1)
    , m_channels(channels)
    , m_samples(m_capacity * static_cast<size_t>(channels), 0.0f) {}

size_t FrameRingBuffer::readableFrames() const {
    return static_cast<size_t>(m_write.load(std::memory_order_acquire) -
                               m_read.load(std::memory_order_acquire));
}

size_t FrameRingBuffer::writableFrames() const {
    return m_capacity - readableFrames();
}

size_t FrameRingBuffer::write(const float* interleaved, size_t frames) {
    const uint64_t write = m_write.load(std::memory_order_relaxed);
    const uint64_t read = m_read.load(std::memory_order_acquire);
    const size_t count = std::min(frames, m_capacity - static_cast<size_t>(write - read));
    const size_t start = static_cast<size_t>(write) & m_mask;
    const size_t first = std::min(count, m_capacity - start);
    const size_t channels = static_cast<size_t>(m_channels);
    std::memcpy(&m_samples[start * channels], interleaved, first * channels * sizeof(float));
    std::memcpy(m_samples.data(), interleaved + first * channels, (count - first) * channels * sizeof(float));
    m_write.store(write + count, std::memory_order_release);
    return count;
}

size_t FrameRingBuffer::available(uint64_t limit) const {
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    const uint64_t write = std::min(limit, m_write.load(std::memory_order_acquire));
    return write > read ? static_cast<size_t>(write - read) : 0;
}

size_t FrameRingBuffer::read(float* interleaved, size_t frames, uint64_t limit) {
    const size_t count = std::min(frames, available(limit));
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    const size_t start = static_cast<size_t>(read) & m_mask;
    const size_t first = std::min(count, m_capacity - start);
    const size_t channels = static_cast<size_t>(m_channels);
    std::memcpy(interleaved, &m_samples[start * channels], first * channels * sizeof(float));
    std::memcpy(interleaved + first * channels, m_samples.data(), (count - first) * channels * sizeof(float));
    m_read.store(read + count, std::memory_order_release);
    return count;
}

size_t FrameRingBuffer::mixInto(float* interleaved, size_t frames, float gain, uint64_t limit) {
    const size_t count = std::min(frames, available(limit));
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    const size_t start = static_cast<size_t>(read) & m_mask;
    const size_t first = std::min(count, m_capacity - start);
    const size_t channels = static_cast<size_t>(m_channels);
    const float* source = &m_samples[start * channels];
    for (size_t i = 0, n = first * channels; i < n; ++i)
        interleaved[i] += gain * source[i];
    float* rest = interleaved + first * channels;
    for (size_t i = 0, n = (count - first) * channels; i < n; ++i)
        rest[i] += gain * m_samples[i];
    m_read.store(read + count, std::memory_order_release);
    return count;
}

size_t FrameRingBuffer::skip(size_t frames, uint64_t limit) {
    const size_t count = std::min(frames, available(limit));
    m_read.store(m_read.load(std::memory_order_relaxed) + count, std::memory_order_release);
    return count;
}

void FrameRingBuffer::discardTo(uint64_t position) {
    const uint64_t read = m_read.load(std::memory_order_relaxed);
    const uint64_t target = std::min(position, m_write.load(std::memory_order_acquire));
    if (target > read)
        m_read.store(target, std::memory_order_release);
}
