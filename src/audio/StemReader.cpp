#include "StemReader.h"

#include "StemVoice.h"

#include <algorithm>

namespace {
// How long the reader naps while some stem still has frames to decode (its ring being full), and while
// every stem is done. Rings hold seconds of audio, so a few milliseconds is plenty.
constexpr auto busyNap = std::chrono::milliseconds(3);
constexpr auto idleNap = std::chrono::milliseconds(100);
} // namespace

StemReader::~StemReader() {
    stop();
}

void StemReader::start(std::vector<StemVoice*> voices) {
    if (m_thread.joinable())
        return;
    m_voices = std::move(voices);
    m_stopRequested = false;
    m_thread = std::thread([this] { run(); });
}

void StemReader::stop() {
    if (!m_thread.joinable())
        return;
    {
        std::lock_guard lock(m_mutex);
        m_stopRequested = true;
    }
    m_wakeUp.notify_all();
    m_thread.join();
}

void StemReader::wake() {
    {
        std::lock_guard lock(m_mutex);
        m_woken = true;
    }
    m_wakeUp.notify_all();
}

bool StemReader::waitUntil(const std::function<bool()>& ready, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!ready()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        wake();
        std::unique_lock lock(m_mutex);
        m_progress.wait_for(lock, std::chrono::milliseconds(2));
    }
    return true;
}

void StemReader::run() {
    for (;;) {
        bool worked = false;
        for (StemVoice* voice : m_voices)
            worked = voice->pump() || worked;
        const bool workLeft = std::any_of(m_voices.begin(), m_voices.end(),
                                          [](StemVoice* voice) { return voice->hasWorkLeft(); });
        std::unique_lock lock(m_mutex);
        m_progress.notify_all();
        if (m_stopRequested)
            return;
        if (!worked && !m_woken)
            m_wakeUp.wait_for(lock, workLeft ? busyNap : idleNap,
                              [this] { return m_woken || m_stopRequested; });
        m_woken = false;
    }
}
