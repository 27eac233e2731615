#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

// The formats a mix, a stem or a converted file is written in, in the order of the format pickers.
enum class ExportFormat { wav, mp3 };

namespace ExportFormats {
QList<ExportFormat> all();
QString label(ExportFormat format);     // "WAV", "MP3" (also the raw value)
QString extension(ExportFormat format); // the label in lower case
// From a label or an extension, in any case; none for anything else.
std::optional<ExportFormat> fromName(const QString& name);
// FFmpeg codec arguments for transcoding one file.
QStringList conversionArguments(ExportFormat format);
// FFmpeg codec arguments for a mix, after its filter graph.
QStringList mixArguments(ExportFormat format);
} // namespace ExportFormats
