#pragma once

#include "engine_client/StemJob.h"

#include <QString>

// Readable French texts of a job for the command line.
namespace JobDescription {
// "{id}\t{status label}\t{progress} %\t{creation, local time}\t{title}"
QString listLine(const StemJob& job);
// One "Label : value" line per known field.
QString details(const StemJob& job);
// "{status label} {progress} %", then " — {stage}" when the engine names one.
QString progressLine(const StemJob& job);
// "42", "42.5": progress without a useless fraction.
QString percent(double progress);
} // namespace JobDescription
