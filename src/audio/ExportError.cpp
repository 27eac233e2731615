#include "ExportError.h"

ExportError::ExportError(Kind kind, QString output, QString message)
    : UserError(std::move(message))
    , m_kind(kind)
    , m_output(std::move(output)) {}

ExportError ExportError::ffmpegNotFound() {
    return ExportError(Kind::ffmpegNotFound, QString(),
                       QStringLiteral("ffmpeg introuvable. Installez-le via votre gestionnaire de paquets :\n"
                                      "sudo apt install ffmpeg"));
}

ExportError ExportError::ffmpegFailed(const QString& output) {
    return ExportError(Kind::ffmpegFailed, output, QStringLiteral("ffmpeg a échoué :\n") + output);
}

ExportError ExportError::folderNotCreated(const QString& reason) {
    return ExportError(Kind::folderNotCreated, reason,
                       QStringLiteral("Impossible de créer le dossier : ") + reason);
}
