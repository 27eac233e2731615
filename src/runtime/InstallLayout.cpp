#include "InstallLayout.h"

#include "platform/Places.h"

#include <QFileInfo>
#include <unistd.h>

namespace {
std::optional<QString> firstExecutable(const QString& own, const QStringList& candidates) {
    if (InstallLayout::isExecutable(own))
        return own;
    for (const QString& candidate : candidates)
        if (InstallLayout::isExecutable(candidate))
            return candidate;
    return std::nullopt;
}
} // namespace

InstallLayout::Config InstallLayout::defaultConfig() {
    return Config{Places::installRoot(),
                  Places::documentsDir(),
                  Places::homeDir(),
                  {QStringLiteral("/usr/local/bin/ffmpeg"), QStringLiteral("/usr/bin/ffmpeg")},
                  {QStringLiteral("/usr/local/bin/ffprobe"), QStringLiteral("/usr/bin/ffprobe")}};
}

InstallLayout::InstallLayout(Config config)
    : m_config(std::move(config)) {}

QString InstallLayout::supportURL(const QString& name) const {
    return m_config.root + QLatin1Char('/') + name;
}

QString InstallLayout::manifestPath() const {
    return supportURL(QStringLiteral("components.json"));
}
QString InstallLayout::backendsDir() const {
    return supportURL(QStringLiteral("backends"));
}
QString InstallLayout::backendDir(const QString& tag) const {
    return backendsDir() + QLatin1Char('/') + (tag.isEmpty() ? QStringLiteral("none") : tag);
}
QString InstallLayout::backendPython(const QString& tag) const {
    return backendBinDir(tag) + QStringLiteral("/python");
}
QString InstallLayout::backendBinDir(const QString& tag) const {
    return backendDir(tag) + QStringLiteral("/.venv/bin");
}
QString InstallLayout::readyMarker(const QString& tag) const {
    return backendDir(tag) + QStringLiteral("/.halvorn-ready");
}
QString InstallLayout::dataDir() const {
    return supportURL(QStringLiteral("data"));
}
QString InstallLayout::ffmpegDir() const {
    return dataDir() + QStringLiteral("/ffmpeg");
}
QString InstallLayout::ownFFmpeg() const {
    return ffmpegDir() + QStringLiteral("/ffmpeg");
}
QString InstallLayout::ownFFprobe() const {
    return ffmpegDir() + QStringLiteral("/ffprobe");
}
QString InstallLayout::fpcalcPath() const {
    return ffmpegDir() + QStringLiteral("/fpcalc");
}
QString InstallLayout::jsRuntimeDir() const {
    return dataDir() + QStringLiteral("/jsruntime");
}
QString InstallLayout::qjsPath() const {
    return jsRuntimeDir() + QStringLiteral("/qjs");
}
QString InstallLayout::uvPath() const {
    return supportURL(QStringLiteral("uv/uv"));
}
QString InstallLayout::pythonDir() const {
    return supportURL(QStringLiteral("python"));
}
QString InstallLayout::uvCacheDir() const {
    return supportURL(QStringLiteral("uv-cache"));
}
QString InstallLayout::backendLogPath() const {
    return supportURL(QStringLiteral("backend.log"));
}
QString InstallLayout::jobsDir() const {
    return m_config.documentsDir + QStringLiteral("/Halvorn/jobs");
}

bool InstallLayout::isBackendInstalled(const QString& tag) const {
    return QFileInfo::exists(readyMarker(tag)) && isExecutable(backendPython(tag));
}

std::optional<QString> InstallLayout::ffmpegPath() const {
    return firstExecutable(ownFFmpeg(), m_config.systemFFmpegCandidates);
}

std::optional<QString> InstallLayout::ffprobePath() const {
    return firstExecutable(ownFFprobe(), m_config.systemFFprobeCandidates);
}

bool InstallLayout::isExecutable(const QString& path) {
    if (path.isEmpty())
        return false;
    const QByteArray native = QFile::encodeName(path);
    return ::access(native.constData(), X_OK) == 0 && !QFileInfo(path).isDir();
}
