#include "MixRenderer.h"

#include "StemVoice.h"

#include <algorithm>
#include <cmath>

int64_t MixRenderer::startAfter(double seconds) {
    const int64_t frame = renderedFrames() + std::llround(seconds * m_sampleRate);
    m_startFrame.store(frame);
    return frame;
}

int64_t MixRenderer::framesPlayed() const {
    const int64_t start = m_startFrame.load();
    if (start < 0)
        return 0;
    return std::max<int64_t>(0, renderedFrames() - start);
}

void MixRenderer::render(float* out, size_t frames) noexcept {
    std::fill(out, out + frames * 2, 0.0f);
    // The start frame is read before any voice's generation (both sequentially consistent), so a voice
    // never pairs a new segment with an older start.
    const int64_t start = m_startFrame.load();
    const int64_t blockStart = m_rendered.load(std::memory_order_relaxed);
    for (StemVoice* voice : m_voices)
        voice->render(out, frames, blockStart, start);
    m_rendered.store(blockStart + static_cast<int64_t>(frames), std::memory_order_release);
}

void MixRenderer::acknowledge() noexcept {
    for (StemVoice* voice : m_voices)
        voice->acknowledge();
}

bool MixRenderer::isPrimed(size_t frames) const {
    return std::all_of(m_voices.begin(), m_voices.end(),
                       [frames](const StemVoice* voice) { return voice->isPrimed(frames); });
}
