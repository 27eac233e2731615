#include "ReadOnlyFolder.h"

#include <QFile>
#include <QProcess>
#include <unistd.h>

namespace {
bool runChattr(const QString& flag, const QString& path) {
    QProcess process;
    process.start(QStringLiteral("chattr"), QStringList{flag, path});
    return process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}
} // namespace

ReadOnlyFolder::ReadOnlyFolder(QString path)
    : m_path(std::move(path)) {
    QFile::setPermissions(m_path, QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup |
                                      QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther);
    if (geteuid() == 0)
        m_immutable = runChattr(QStringLiteral("+i"), m_path);
}

ReadOnlyFolder::~ReadOnlyFolder() {
    if (m_immutable)
        runChattr(QStringLiteral("-i"), m_path);
    QFile::setPermissions(m_path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                                      QFileDevice::ReadGroup | QFileDevice::ExeGroup |
                                      QFileDevice::ReadOther | QFileDevice::ExeOther);
}

bool ReadOnlyFolder::isEffective() const {
    QFile probe(m_path + QStringLiteral("/.write-probe"));
    if (!probe.open(QIODevice::WriteOnly))
        return true;
    probe.close();
    probe.remove();
    return false;
}
