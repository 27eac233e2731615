#pragma once

#include <QString>
#include <functional>

// Where the audio services write their "[AudioPlayer] …" and "[Waveform] …" lines. Callable from any
// thread; the default writes the line to standard output.
using ConsoleLineSink = std::function<void(const QString& line)>;

void printConsoleLine(const QString& line);
