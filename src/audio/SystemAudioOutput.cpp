#include "SystemAudioOutput.h"

#include "AudioEngineError.h"
#include "NullOutput.h"
#include "PortAudioOutput.h"

std::unique_ptr<AudioOutput> createSystemAudioOutput(const ConsoleLineSink& console) {
    const QString wanted = qEnvironmentVariable("MARLUNE_AUDIO_OUTPUT").trimmed().toLower();
    if (wanted == QLatin1String("null"))
        return std::make_unique<NullOutput>();
    try {
        return std::make_unique<PortAudioOutput>();
    } catch (const AudioEngineError& error) {
        console(
            QStringLiteral("[AudioPlayer] No output device (%1): silent null output").arg(error.message()));
        return std::make_unique<NullOutput>();
    }
}
