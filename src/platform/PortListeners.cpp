#include "PortListeners.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QThread>
#include <csignal>
#include <unistd.h>

namespace {

constexpr auto kListenState = "0A";

// Socket inodes of listening sockets on `port` in one /proc/net/tcp-style table.
void collectListeningInodes(const QString& table, quint16 port, QSet<quint64>& inodes) {
    QFile file(table);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QList<QByteArray> fields = lines[i].simplified().split(' ');
        // sl local_address rem_address st tx:rx tr:when retrnsmt uid timeout inode
        if (fields.size() < 10 || fields[3] != kListenState)
            continue;
        const int colon = fields[1].lastIndexOf(':');
        bool ok = false;
        const uint localPort = fields[1].mid(colon + 1).toUInt(&ok, 16);
        if (!ok || localPort != port)
            continue;
        const quint64 inode = fields[9].toULongLong(&ok);
        if (ok && inode != 0)
            inodes.insert(inode);
    }
}

bool holdsSocket(const QString& pidDir, const QSet<quint64>& inodes) {
    const QDir fdDir(pidDir + QStringLiteral("/fd"));
    const QStringList fds = fdDir.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    char target[64];
    for (const QString& fd : fds) {
        const QByteArray link = QFile::encodeName(fdDir.filePath(fd));
        const ssize_t length = ::readlink(link.constData(), target, sizeof target - 1);
        if (length <= 0)
            continue;
        const QByteArray text(target, length); // "socket:[12345]"
        if (!text.startsWith("socket:[") || !text.endsWith(']'))
            continue;
        if (inodes.contains(text.mid(8, text.size() - 9).toULongLong()))
            return true;
    }
    return false;
}

} // namespace

namespace PortListeners {

QList<pid_t> find(quint16 port) {
    QSet<quint64> inodes;
    collectListeningInodes(QStringLiteral("/proc/net/tcp"), port, inodes);
    collectListeningInodes(QStringLiteral("/proc/net/tcp6"), port, inodes);
    QList<pid_t> pids;
    if (inodes.isEmpty())
        return pids;
    const pid_t self = getpid();
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool ok = false;
        const pid_t pid = entry.toInt(&ok);
        if (!ok || pid == self)
            continue;
        if (holdsSocket(QStringLiteral("/proc/") + entry, inodes))
            pids.append(pid);
    }
    return pids;
}

void freePort(quint16 port) {
    const QList<pid_t> first = find(port);
    if (first.isEmpty())
        return;
    for (pid_t pid : first)
        ::kill(pid, SIGTERM);
    QThread::msleep(500);
    for (pid_t pid : find(port))
        ::kill(pid, SIGKILL);
}

} // namespace PortListeners
