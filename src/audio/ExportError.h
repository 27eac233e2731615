#pragma once

#include "platform/UserError.h"

// A failure of an FFmpeg-based export or conversion, with its French message.
class ExportError : public UserError {
public:
    enum class Kind { ffmpegNotFound, ffmpegFailed, folderNotCreated };

    // No FFmpeg executable was found.
    static ExportError ffmpegNotFound();
    // FFmpeg exited with a status other than 0; `output` is the tail of its error output.
    static ExportError ffmpegFailed(const QString& output);
    // The folder of a stems export could not be created; `reason` is the system's description.
    static ExportError folderNotCreated(const QString& reason);

    Kind kind() const { return m_kind; }
    const QString& output() const { return m_output; } // FFmpeg's error output, or the folder's failure

private:
    ExportError(Kind kind, QString output, QString message);

    Kind m_kind;
    QString m_output;
};
