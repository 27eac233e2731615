#include "NullOutput.h"

#include "AudioRenderSource.h"

#include <vector>

NullOutput::NullOutput(int sampleRate, size_t blockFrames, SleepUntil sleepUntil)
    : m_sampleRate(sampleRate)
    , m_blockFrames(blockFrames)
    , m_sleepUntil(std::move(sleepUntil)) {
    if (!m_sleepUntil)
        m_sleepUntil = [](Clock::time_point when) { std::this_thread::sleep_until(when); };
}

NullOutput::~NullOutput() {
    stop();
}

void NullOutput::start(AudioRenderSource& source) {
    if (m_thread.joinable())
        return;
    m_stopRequested.store(false);
    m_thread = std::thread([this, &source] { run(source); });
}

void NullOutput::stop() noexcept {
    if (!m_thread.joinable())
        return;
    m_stopRequested.store(true);
    m_thread.join();
}

void NullOutput::run(AudioRenderSource& source) {
    std::vector<float> block(m_blockFrames * 2);
    const auto start = Clock::now();
    for (uint64_t rendered = 0; !m_stopRequested.load();) {
        source.render(block.data(), m_blockFrames);
        rendered += m_blockFrames;
        // Each block is due when the previous ones would have finished playing: no drift over time.
        const auto due = start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                                     static_cast<double>(rendered) / m_sampleRate));
        m_sleepUntil(due);
    }
}
