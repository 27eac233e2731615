#pragma once

#include "AudioOutput.h"
#include "ConsoleLine.h"

#include <memory>

// The output the application plays through: the default sound device through PortAudio, or, when no
// device exists (a server, CI) or MARLUNE_AUDIO_OUTPUT=null, a clock-paced null output.
std::unique_ptr<AudioOutput> createSystemAudioOutput(const ConsoleLineSink& console = printConsoleLine);
