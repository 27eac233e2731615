#pragma once

#include "AudioOutput.h"
#include "AudioRenderSource.h"
#include "MixRenderer.h"
#include "StemReader.h"
#include "StemVoice.h"

#include <memory>
#include <vector>

// The audio engine under the player: stem voices streamed by one reader thread, summed by one render
// callback, sent to one output. The voices change only while the engine is stopped.
class AudioEngine : private AudioRenderSource {
public:
    // Seconds of audio each stem's ring holds: memory stays bounded whatever the song's length.
    static constexpr double ringSeconds = 2.0;

    explicit AudioEngine(std::unique_ptr<AudioOutput> output);
    ~AudioEngine() override;

    AudioEngine(const AudioEngine&) = delete;
    AudioEngine& operator=(const AudioEngine&) = delete;

    AudioOutput& output() { return *m_output; }
    int sampleRate() const { return m_renderer.sampleRate(); }

    // Stops the engine and drops every voice.
    void removeAllVoices();
    // Stops the engine and adds a voice playing `file` (converted to the output rate).
    // Throws AudioFileError when the file cannot be converted.
    StemVoice& addVoice(std::unique_ptr<AudioFileReader> file);
    const std::vector<std::unique_ptr<StemVoice>>& voices() const { return m_voices; }

    // Starts the reader and the output. Throws AudioEngineError (the engine then stays stopped).
    void start();
    void stop();
    bool isRunning() const { return m_output->isRunning(); }

    // Transport (main thread).
    void schedule(StemVoice& voice, int64_t startFrame, int64_t frameCount);
    int64_t startAfter(double seconds) { return m_renderer.startAfter(seconds); }
    void halt() { m_renderer.halt(); }
    int64_t framesPlayed() const { return m_renderer.framesPlayed(); }
    int64_t renderedFrames() const { return m_renderer.renderedFrames(); }

private:
    void render(float* out, size_t frames) noexcept override;
    void prepare(size_t frames) override;

    std::unique_ptr<AudioOutput> m_output;
    MixRenderer m_renderer;
    StemReader m_reader;
    std::vector<std::unique_ptr<StemVoice>> m_voices;
};
