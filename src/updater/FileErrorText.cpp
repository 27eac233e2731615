#include "FileErrorText.h"

#include <cerrno>

QString fileErrorText(const std::error_code& error) {
    if (error.category() == std::generic_category() || error.category() == std::system_category()) {
        switch (error.value()) {
        case EACCES:
        case EPERM:
            return QStringLiteral("permission refusée");
        case EROFS:
            return QStringLiteral("système de fichiers en lecture seule");
        case ENOSPC:
            return QStringLiteral("espace disque insuffisant");
        case EDQUOT:
            return QStringLiteral("quota disque dépassé");
        case ENOENT:
            return QStringLiteral("fichier ou dossier introuvable");
        case EEXIST:
            return QStringLiteral("le fichier existe déjà");
        case EISDIR:
            return QStringLiteral("c'est un dossier");
        case ENOTDIR:
            return QStringLiteral("un élément du chemin n'est pas un dossier");
        case ETXTBSY:
            return QStringLiteral("fichier en cours d'exécution");
        case EBUSY:
            return QStringLiteral("ressource occupée");
        case EXDEV:
            return QStringLiteral("déplacement impossible entre deux systèmes de fichiers");
        case EIO:
            return QStringLiteral("erreur d'entrée-sortie");
        case ENAMETOOLONG:
            return QStringLiteral("nom de fichier trop long");
        default:
            break;
        }
    }
    return QStringLiteral("erreur système %1 (%2)")
        .arg(error.value())
        .arg(QString::fromLocal8Bit(error.message().c_str()));
}
