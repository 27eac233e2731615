#pragma once

#include "Command.h"

// `marlune convert FILE… [--format wav|mp3] [--out DIR] [--verbose]`: the audio converter, headless.
// One line per file: "✅ {name} → {written path}" on standard output, "❌ {name} : {message}" on standard
// error. Exit 1 when any file failed.
Command convertCommand();
