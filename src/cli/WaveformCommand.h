#pragma once

#include "Command.h"

// `marlune waveform FILE [--points N]`: prints the file's envelope as a JSON array.
Command waveformCommand();
