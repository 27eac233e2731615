#include "StemVoice.h"

#include <algorithm>

StemVoice::StemVoice(std::unique_ptr<AudioFileReader> file, int outputRate, size_t ringFrames)
    : m_file(std::move(file))
    , m_converter(m_file->channels(), m_file->sampleRate(), outputRate)
    , m_ring(ringFrames, 2)
    , m_readBuffer(static_cast<size_t>(chunkFrames * m_file->channels())) {}

void StemVoice::schedule(int64_t startFrame, int64_t frameCount) {
    std::lock_guard lock(m_commandMutex);
    const uint32_t generation = ++m_lastGeneration;
    m_pending = Segment{generation, startFrame, std::max<int64_t>(0, frameCount)};
    m_wantedGeneration.store(generation);
}

void StemVoice::beginSegment(const Segment& segment) {
    m_converted.clear();
    m_convertedOffset = 0;
    m_remaining = segment.frameCount;
    if (m_remaining > 0 && !m_file->seek(segment.startFrame))
        m_remaining = 0;
    m_converter.reset();
    m_needsFlush = m_remaining > 0;
    m_generationStart.store(m_ring.writePosition(), std::memory_order_relaxed);
    m_producedGeneration.store(segment.generation, std::memory_order_release);
    if (m_remaining == 0)
        m_endedGeneration.store(segment.generation, std::memory_order_release);
}

bool StemVoice::deliverConverted() {
    const size_t frames = m_converted.size() / 2;
    if (m_convertedOffset >= frames)
        return false;
    const size_t written =
        m_ring.write(m_converted.data() + m_convertedOffset * 2, frames - m_convertedOffset);
    m_convertedOffset += written;
    return written > 0;
}

bool StemVoice::pump() {
    std::optional<Segment> segment;
    {
        std::lock_guard lock(m_commandMutex);
        segment.swap(m_pending);
    }
    if (segment) {
        beginSegment(*segment);
        return true;
    }
    const uint32_t generation = m_producedGeneration.load(std::memory_order_relaxed);
    if (m_endedGeneration.load(std::memory_order_relaxed) == generation)
        return false;
    // Older frames may still sit in the ring until the render thread drops them.
    if (m_consumedGeneration.load(std::memory_order_acquire) != generation)
        return false;
    if (m_convertedOffset < m_converted.size() / 2)
        return deliverConverted();
    if (m_remaining > 0) {
        // Chunks stay well within the ring even for extreme rate ratios; wait for room for a whole one.
        int64_t frames = std::min(chunkFrames, m_remaining);
        const auto half = static_cast<int64_t>(m_ring.capacityFrames() / 2);
        while (frames > 1 && m_converter.maxOutputFrames(frames) > half)
            frames /= 2;
        if (m_converter.maxOutputFrames(frames) > static_cast<int64_t>(m_ring.writableFrames()))
            return false;
        const int64_t read = m_file->read(m_readBuffer.data(), frames);
        m_remaining = read > 0 ? m_remaining - read : 0;
        m_converter.convert(m_readBuffer.data(), read, m_converted);
        m_convertedOffset = 0;
        deliverConverted();
        return true;
    }
    if (m_needsFlush) {
        m_needsFlush = false;
        m_converter.flush(m_converted);
        m_convertedOffset = 0;
        deliverConverted();
        return true;
    }
    m_endedGeneration.store(generation, std::memory_order_release);
    return true;
}

bool StemVoice::hasWorkLeft() const {
    return m_producedGeneration.load(std::memory_order_relaxed) !=
           m_endedGeneration.load(std::memory_order_relaxed);
}

void StemVoice::acknowledge() {
    const uint32_t wanted = m_wantedGeneration.load();
    if (m_current == wanted || m_producedGeneration.load(std::memory_order_acquire) != wanted)
        return;
    m_ring.discardTo(m_generationStart.load(std::memory_order_relaxed));
    m_current = wanted;
    m_position = 0;
    m_owed = 0;
    m_consumedGeneration.store(wanted, std::memory_order_release);
}

void StemVoice::render(float* out, size_t frames, int64_t blockStart, int64_t segmentStart) {
    acknowledge();
    const int64_t blockEnd = blockStart + static_cast<int64_t>(frames);
    if (segmentStart < 0 || blockEnd <= segmentStart || m_current != m_wantedGeneration.load())
        return;
    // Read the end mark before the ring: once it is seen, every frame of the segment is visible.
    const bool ended = m_endedGeneration.load(std::memory_order_acquire) == m_current;
    const int64_t from = std::max(blockStart, segmentStart);
    const int64_t missed = (from - segmentStart) - m_position;
    if (missed > 0) {
        m_owed += static_cast<uint64_t>(missed);
        m_position += missed;
    }
    const size_t need = static_cast<size_t>(blockEnd - from);
    if (m_owed > 0)
        m_owed -= m_ring.skip(m_owed, UINT64_MAX);
    size_t played = 0;
    if (m_owed == 0)
        played = m_ring.mixInto(out + (from - blockStart) * 2, need, gain(), UINT64_MAX);
    if (played < need && !ended) {
        m_owed += need - played;
        m_underruns.fetch_add(need - played, std::memory_order_relaxed);
    }
    if (ended && m_ring.readableFrames() == 0)
        m_owed = 0;
    m_position += static_cast<int64_t>(need);
}

bool StemVoice::isPrimed(size_t frames) const {
    const uint32_t wanted = m_wantedGeneration.load();
    if (m_current != wanted)
        return false;
    if (m_endedGeneration.load(std::memory_order_acquire) == wanted)
        return true;
    return m_ring.readableFrames() >= std::min(frames + m_owed, m_ring.capacityFrames() / 2);
}
