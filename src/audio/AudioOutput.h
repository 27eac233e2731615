#pragma once

#include <QString>

class AudioRenderSource;

// Where rendered stereo frames go: a sound device, or a clock-paced sink when there is none.
class AudioOutput {
public:
    virtual ~AudioOutput() = default;

    // A short name for the console ("PortAudio: default", "null").
    virtual QString name() const = 0;
    virtual int sampleRate() const = 0;
    // Starts pulling frames from `source` on the output's own thread. Throws AudioEngineError.
    virtual void start(AudioRenderSource& source) = 0;
    // Stops pulling; once it returns, render() is not running and will not be called again.
    virtual void stop() noexcept = 0;
    virtual bool isRunning() const = 0;
};
