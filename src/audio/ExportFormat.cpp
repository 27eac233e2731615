#include "ExportFormat.h"

namespace ExportFormats {

QList<ExportFormat> all() {
    return {ExportFormat::wav, ExportFormat::mp3};
}

QString label(ExportFormat format) {
    switch (format) {
    case ExportFormat::wav:
        return QStringLiteral("WAV");
    case ExportFormat::mp3:
        return QStringLiteral("MP3");
    }
    return {};
}

QString extension(ExportFormat format) {
    return label(format).toLower();
}

std::optional<ExportFormat> fromName(const QString& name) {
    for (ExportFormat format : all())
        if (name.compare(label(format), Qt::CaseInsensitive) == 0)
            return format;
    return std::nullopt;
}

QStringList conversionArguments(ExportFormat format) {
    switch (format) {
    case ExportFormat::wav:
        return {QStringLiteral("-vn"), QStringLiteral("-acodec"), QStringLiteral("pcm_s16le"),
                QStringLiteral("-ar"), QStringLiteral("44100")};
    case ExportFormat::mp3:
        return {QStringLiteral("-vn"),       QStringLiteral("-codec:a"), QStringLiteral("libmp3lame"),
                QStringLiteral("-qscale:a"), QStringLiteral("2"),        QStringLiteral("-ar"),
                QStringLiteral("44100")};
    }
    return {};
}

QStringList mixArguments(ExportFormat format) {
    switch (format) {
    case ExportFormat::wav:
        return {QStringLiteral("-acodec"), QStringLiteral("pcm_s16le"), QStringLiteral("-ar"),
                QStringLiteral("44100")};
    case ExportFormat::mp3:
        return {QStringLiteral("-codec:a"), QStringLiteral("libmp3lame"), QStringLiteral("-qscale:a"),
                QStringLiteral("2")};
    }
    return {};
}

} // namespace ExportFormats
