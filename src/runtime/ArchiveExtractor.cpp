#include "ArchiveExtractor.h"

#include "SetupError.h"
#include "TemporaryPaths.h"
#include "ToolRunner.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

namespace ArchiveExtractor {

QCoro::Task<QString> extractArchive(QString archive, ArchiveKind kind, QString parent) {
    const QString folder = TemporaryPaths::uniqueName(parent);
    if (!QDir().mkpath(folder))
        throw SetupError(QStringLiteral("Impossible de créer le dossier %1").arg(folder));
    const QStringList arguments =
        kind == ArchiveKind::zip
            ? QStringList{QStringLiteral("-q"), QStringLiteral("-o"), archive, QStringLiteral("-d"), folder}
            : QStringList{QStringLiteral("xzf"), archive, QStringLiteral("-C"), folder};
    const QString tool =
        kind == ArchiveKind::zip ? QStringLiteral("/usr/bin/unzip") : QStringLiteral("/usr/bin/tar");
    std::optional<QString> failure;
    try {
        const ToolRunOptions options;
        co_await runTool(tool, arguments, options);
    } catch (const SetupError& error) {
        failure = error.message();
    }
    if (failure) {
        QDir(folder).removeRecursively();
        throw SetupError(
            QStringLiteral("Archive %1 illisible : %2").arg(QFileInfo(archive).fileName(), *failure));
    }
    co_return folder;
}

QString findFile(const QString& name, const QString& folder) {
    QString best;
    int bestDepth = 0;
    QDirIterator files(folder, QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        if (files.fileName() != name)
            continue;
        const int depth = int(path.count(QLatin1Char('/')));
        if (best.isEmpty() || depth < bestDepth || (depth == bestDepth && path < best)) {
            best = path;
            bestDepth = depth;
        }
    }
    if (best.isEmpty())
        throw SetupError(QStringLiteral("%1 absent de l'archive").arg(name));
    return best;
}

} // namespace ArchiveExtractor
