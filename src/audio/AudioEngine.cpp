#include "AudioEngine.h"

#include <chrono>

namespace {
// How long a pull output waits for the reader before rendering a gap instead.
constexpr auto primingTimeout = std::chrono::seconds(10);
} // namespace

AudioEngine::AudioEngine(std::unique_ptr<AudioOutput> output)
    : m_output(std::move(output))
    , m_renderer(m_output->sampleRate()) {}

AudioEngine::~AudioEngine() {
    stop();
}

void AudioEngine::removeAllVoices() {
    stop();
    m_renderer.setVoices({});
    m_voices.clear();
}

StemVoice& AudioEngine::addVoice(std::unique_ptr<AudioFileReader> file) {
    stop();
    const auto ringFrames = static_cast<size_t>(ringSeconds * sampleRate());
    m_voices.push_back(std::make_unique<StemVoice>(std::move(file), sampleRate(), ringFrames));
    std::vector<StemVoice*> voices;
    for (const auto& voice : m_voices)
        voices.push_back(voice.get());
    m_renderer.setVoices(voices);
    return *m_voices.back();
}

void AudioEngine::start() {
    if (isRunning())
        return;
    std::vector<StemVoice*> voices;
    for (const auto& voice : m_voices)
        voices.push_back(voice.get());
    m_reader.start(voices);
    try {
        m_output->start(*this);
    } catch (...) {
        m_reader.stop();
        throw;
    }
}

void AudioEngine::stop() {
    m_output->stop();
    m_reader.stop();
}

void AudioEngine::schedule(StemVoice& voice, int64_t startFrame, int64_t frameCount) {
    voice.schedule(startFrame, frameCount);
    m_reader.wake();
}

void AudioEngine::render(float* out, size_t frames) noexcept {
    m_renderer.render(out, frames);
}

void AudioEngine::prepare(size_t frames) {
    m_reader.waitUntil(
        [&] {
            m_renderer.acknowledge();
            return m_renderer.isPrimed(frames);
        },
        std::chrono::duration_cast<std::chrono::milliseconds>(primingTimeout));
}
