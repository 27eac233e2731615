#include "ReleaseMirror.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
void writeWhole(const QString& path, const QByteArray& contents) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(contents) != contents.size())
        qFatal("cannot write %s", qPrintable(path));
}

QByteArray readWhole(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

QString ReleaseMirror::script() {
    const QString source = qEnvironmentVariableIsEmpty("MARLUNE_SOURCE_DIR")
                               ? QFileInfo(QStringLiteral(__FILE__)).absolutePath() + QStringLiteral("/../..")
                               : qEnvironmentVariable("MARLUNE_SOURCE_DIR");
    return QDir::cleanPath(source + QStringLiteral("/tools/mirror/marlune-mirror"));
}

ReleaseMirror::ReleaseMirror(const QStringList& arguments) {
    m_process.setProgram(QStringLiteral("/usr/bin/python3"));
    m_process.setArguments(QStringList{script(), QStringLiteral("--root"), m_dir.path()} + arguments);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start();
    QByteArray output;
    QDeadlineTimer deadline(30000);
    while (!deadline.hasExpired() && m_process.state() != QProcess::NotRunning) {
        m_process.waitForReadyRead(100);
        output += m_process.readAllStandardOutput();
        QList<QByteArray> lines = output.split('\n');
        lines.removeLast(); // not finished yet
        for (const QByteArray& line : lines) {
            if (line.startsWith("MIRROR_READY ")) {
                m_port = line.mid(13).trimmed().toUShort();
            } else if (const qsizetype equals = line.indexOf('='); equals > 0) {
                m_environment.insert(QString::fromUtf8(line.left(equals)),
                                     QString::fromUtf8(line.mid(equals + 1)));
            }
        }
        if (m_port != 0)
            return;
    }
    qWarning("the release mirror did not start: %s", output.constData());
}

ReleaseMirror::~ReleaseMirror() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

QString ReleaseMirror::servedFile(const QString& urlPath) const {
    return m_dir.path() + QStringLiteral("/www") + urlPath;
}

void ReleaseMirror::replaceServed(const QString& urlPath, const QByteArray& contents) const {
    writeWhole(servedFile(urlPath), contents);
}

void ReleaseMirror::setRules(const QByteArray& rulesJson) const {
    writeWhole(m_dir.path() + QStringLiteral("/control.json"), "{\"rules\": " + rulesJson + "}");
}

QStringList ReleaseMirror::requests() const {
    return QString::fromUtf8(readWhole(m_dir.path() + QStringLiteral("/requests.log")))
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void ReleaseMirror::clearRequests() const {
    QFile::remove(m_dir.path() + QStringLiteral("/requests.log"));
}

void ReleaseMirror::setUvControl(const QByteArray& json) const {
    writeWhole(m_dir.path() + QStringLiteral("/uv-control.json"), json);
}

QList<QByteArray> ReleaseMirror::uvCalls() const {
    QList<QByteArray> calls = readWhole(m_dir.path() + QStringLiteral("/uv-calls.log")).split('\n');
    calls.removeAll(QByteArray());
    return calls;
}
