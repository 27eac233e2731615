#pragma once

#include "AudioOutput.h"

#include <vector>

// An output driven by its caller: every pull() renders the next frames on the calling thread, once the
// source has them ready. The engine's clock then advances exactly by what was pulled, which makes
// playback deterministic for tests and lets benchmarks and offline renders run faster than real time.
class PullOutput : public AudioOutput {
public:
    static constexpr size_t sliceFrames = 1024;

    explicit PullOutput(int sampleRate = 44100)
        : m_sampleRate(sampleRate) {}

    QString name() const override { return QStringLiteral("pull"); }
    int sampleRate() const override { return m_sampleRate; }
    void start(AudioRenderSource& source) override { m_source = &source; }
    void stop() noexcept override { m_source = nullptr; }
    bool isRunning() const override { return m_source != nullptr; }

    // The next `frames` stereo interleaved frames; silence (and no clock advance) when not started.
    std::vector<float> pull(size_t frames);
    // The same into a caller's buffer of 2 × frames floats; returns whether anything was rendered.
    bool pullInto(float* out, size_t frames);

private:
    const int m_sampleRate;
    AudioRenderSource* m_source = nullptr;
};
