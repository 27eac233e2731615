#pragma once

#include <QCoro/QCoroTask>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <functional>

// How one FFmpeg process ended.
struct FFmpegOutcome {
    int exitStatus = 0;  // -1 when it did not exit normally (killed by a signal)
    QString errorOutput; // its whole standard error, UTF-8 (empty when not valid UTF-8)
    bool succeeded() const { return exitStatus == 0; }
};

namespace FFmpegProcess {
// Runs `executable` with `arguments` (never through a shell) on the calling thread and waits for it,
// standard output and standard error captured apart, standard input the null device.
// Throws ProcessLaunchError when it cannot be started.
FFmpegOutcome run(const QString& executable, const QStringList& arguments);

// Runs `work` on the pool of user-initiated export work and awaits it; what `work` throws is rethrown here.
QCoro::Task<> inBackground(std::function<void()> work);

// `path` as an FFmpeg argument: absolute paths unchanged, relative ones made absolute (so that a name
// beginning with "-" is never read as an option).
QString pathArgument(const QString& path);
// The local path of a file URL, or the URL's text for any other.
QString inputPath(const QUrl& url);

// The last `count` characters of `text` (all of it when shorter), never splitting a surrogate pair.
QString tail(const QString& text, qsizetype count);
} // namespace FFmpegProcess
