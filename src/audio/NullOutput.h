#pragma once

#include "AudioOutput.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

// An output without a device: a thread renders block after block, each at the time the block would be
// heard, so that playback, its clock and the meters work where no sound device exists.
class NullOutput : public AudioOutput {
public:
    using Clock = std::chrono::steady_clock;
    // Waits until the given instant; the default sleeps the calling thread.
    using SleepUntil = std::function<void(Clock::time_point)>;

    explicit NullOutput(int sampleRate = 44100, size_t blockFrames = 512, SleepUntil sleepUntil = {});
    ~NullOutput() override;

    QString name() const override { return QStringLiteral("null"); }
    int sampleRate() const override { return m_sampleRate; }
    void start(AudioRenderSource& source) override;
    void stop() noexcept override;
    bool isRunning() const override { return m_thread.joinable(); }

private:
    void run(AudioRenderSource& source);

    const int m_sampleRate;
    const size_t m_blockFrames;
    SleepUntil m_sleepUntil;
    std::atomic<bool> m_stopRequested{false};
    std::thread m_thread;
};
