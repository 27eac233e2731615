#include "Places.h"

#include <QDir>
#include <QStandardPaths>
#include <pwd.h>
#include <unistd.h>

namespace Places {

QString installRoot() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QStringLiteral("/Halvorn");
}

QString documentsDir() {
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
}

QString cacheDir() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
}

QString tempDir() {
    return QDir::tempPath();
}

QString homeDir() {
    return QDir::homePath();
}

QString userName() {
    if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_name)
        return QString::fromLocal8Bit(entry->pw_name);
    return qEnvironmentVariable("USER");
}

} // namespace Places
