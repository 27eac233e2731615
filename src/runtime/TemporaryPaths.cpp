#include "TemporaryPaths.h"

#include <QDir>
#include <QFileInfo>
#include <QUuid>

TemporaryPaths::~TemporaryPaths() {
    for (const QString& path : m_paths) {
        const QFileInfo info(path);
        if (info.isDir() && !info.isSymLink())
            QDir(path).removeRecursively();
        else
            QFile::remove(path);
    }
}

const QString& TemporaryPaths::add(const QString& path) {
    m_paths.append(path);
    return m_paths.last();
}

QString TemporaryPaths::uniqueName(const QString& folder, const QString& suffix) {
    return folder + QStringLiteral("/halvorn-") + QUuid::createUuid().toString(QUuid::WithoutBraces) + suffix;
}
