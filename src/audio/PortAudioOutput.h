#pragma once

#include "AudioOutput.h"

#include <atomic>

typedef void PaStream;

// The system's default output device through PortAudio, stereo 32-bit float at the device's own rate.
class PortAudioOutput : public AudioOutput {
public:
    // Throws AudioEngineError when PortAudio cannot start or no output device exists.
    PortAudioOutput();
    ~PortAudioOutput() override;

    PortAudioOutput(const PortAudioOutput&) = delete;
    PortAudioOutput& operator=(const PortAudioOutput&) = delete;

    QString name() const override { return QStringLiteral("PortAudio: %1").arg(m_deviceName); }
    int sampleRate() const override { return m_sampleRate; }
    void start(AudioRenderSource& source) override;
    void stop() noexcept override;
    bool isRunning() const override { return m_stream != nullptr; }

private:
    int m_device = -1;
    int m_sampleRate = 0;
    double m_latency = 0.0;
    QString m_deviceName;
    PaStream* m_stream = nullptr;
};
