#include "TempInstallRoot.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

TempInstallRoot::TempInstallRoot() {
    QDir().mkpath(home());
    QDir().mkpath(documents());
}

QString TempInstallRoot::writeFile(const QString& relative, const QByteArray& contents,
                                   bool executable) const {
    const QString full = m_dir.path() + QLatin1Char('/') + relative;
    QDir().mkpath(QFileInfo(full).absolutePath());
    QFile file(full);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        qFatal("cannot write %s", qPrintable(full));
    file.write(contents);
    file.close();
    if (executable)
        file.setPermissions(file.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeGroup |
                            QFileDevice::ExeOther);
    return full;
}
