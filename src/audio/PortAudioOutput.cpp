#include "PortAudioOutput.h"

#include "AudioEngineError.h"
#include "AudioRenderSource.h"

#include <fcntl.h>
#include <portaudio.h>
#include <unistd.h>

namespace {
QString paText(PaError error) {
    return QString::fromUtf8(Pa_GetErrorText(error));
}

// Host back-ends (ALSA, JACK) print pages of probing noise on standard error while PortAudio looks for
// devices; every failure that matters comes back as an error code anyway.
class QuietStandardError {
public:
    QuietStandardError()
        : m_saved(dup(STDERR_FILENO)) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (m_saved >= 0 && null >= 0)
            dup2(null, STDERR_FILENO);
        if (null >= 0)
            close(null);
    }
    ~QuietStandardError() {
        if (m_saved < 0)
            return;
        dup2(m_saved, STDERR_FILENO);
        close(m_saved);
    }

private:
    int m_saved;
};

int renderCallback(const void*, void* output, unsigned long frames, const PaStreamCallbackTimeInfo*,
                   PaStreamCallbackFlags, void* source) {
    static_cast<AudioRenderSource*>(source)->render(static_cast<float*>(output), frames);
    return paContinue;
}
} // namespace

PortAudioOutput::PortAudioOutput() {
    const PaError initialised = [] {
        QuietStandardError quiet;
        return Pa_Initialize();
    }();
    if (initialised != paNoError)
        throw AudioEngineError(QStringLiteral("PortAudio ne démarre pas (%1)").arg(paText(initialised)));
    m_device = Pa_GetDefaultOutputDevice();
    const PaDeviceInfo* info = m_device == paNoDevice ? nullptr : Pa_GetDeviceInfo(m_device);
    if (!info || info->maxOutputChannels < 1) {
        Pa_Terminate();
        throw AudioEngineError(QStringLiteral("aucun périphérique de sortie audio"));
    }
    m_deviceName = QString::fromUtf8(info->name);
    m_sampleRate = static_cast<int>(info->defaultSampleRate);
    m_latency = info->defaultLowOutputLatency;
}

PortAudioOutput::~PortAudioOutput() {
    stop();
    Pa_Terminate();
}

void PortAudioOutput::start(AudioRenderSource& source) {
    if (m_stream)
        return;
    PaStreamParameters parameters{};
    parameters.device = m_device;
    parameters.channelCount = 2;
    parameters.sampleFormat = paFloat32;
    parameters.suggestedLatency = m_latency;
    PaStream* stream = nullptr;
    QuietStandardError quiet;
    PaError error = Pa_OpenStream(&stream, nullptr, &parameters, m_sampleRate, paFramesPerBufferUnspecified,
                                  paNoFlag, &renderCallback, &source);
    if (error == paNoError) {
        error = Pa_StartStream(stream);
        if (error != paNoError)
            Pa_CloseStream(stream);
    }
    if (error != paNoError) {
        throw AudioEngineError(
            QStringLiteral("sortie audio « %1 » indisponible (%2)").arg(m_deviceName, paText(error)));
    }
    m_stream = stream;
}

void PortAudioOutput::stop() noexcept {
    if (!m_stream)
        return;
    Pa_StopStream(m_stream);
    Pa_CloseStream(m_stream);
    m_stream = nullptr;
}
