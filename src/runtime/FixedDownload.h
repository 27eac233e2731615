#pragma once

#include <QString>

// How a downloaded tool comes: the executable itself or an archive holding it.
enum class DownloadForm { executable, zip, tarGz };

// Where a download's path is served from.
enum class DownloadHost { github, ffmpegFallback };

// One row of the table of tool downloads for one platform.
struct FixedDownload {
    QString tool;    // "ffmpeg", "ffprobe", "ffmpegFallback", "ffprobeFallback", "fpcalc", "qjs", "uv"
    QString version; // the version recorded once installed; empty for a tool taken at its latest
    DownloadHost host = DownloadHost::github;
    QString path; // "/owner/name/releases/…" under the host's base address
    QString
        versionedPath; // the same asset for a given version ("{version}" stands for it), when there is one
    DownloadForm form = DownloadForm::executable;
    QString sha256; // 64 lower-case hexadecimal digits; empty while not pinned

    // A fixed version is only ever downloaded with a pinned digest; a latest-version row has none.
    bool isFixedVersion() const { return !version.isEmpty(); }
    bool isPinned() const { return sha256.size() == 64; }
    QString fileName() const { return path.section(QLatin1Char('/'), -1); }
    QString pathForVersion(const QString& version) const {
        return QString(versionedPath).replace(QStringLiteral("{version}"), version);
    }

    bool operator==(const FixedDownload&) const = default;
};
