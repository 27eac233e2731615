#include "FFmpegProcess.h"

#include "ProcessLaunchError.h"

#include <QCoro/QCoroFuture>
#include <QFileInfo>
#include <QProcess>
#include <QStringDecoder>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>
#include <memory>

namespace {

QThreadPool& exportPool() {
    static QThreadPool* pool = [] {
        auto* threads = new QThreadPool;
        threads->setObjectName(QStringLiteral("ExportWork"));
        threads->setMaxThreadCount(4);
        return threads;
    }();
    return *pool;
}

QString decodeUtf8(const QByteArray& bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return {};
    return text;
}

} // namespace

namespace FFmpegProcess {

FFmpegOutcome run(const QString& executable, const QStringList& arguments) {
    QProcess process;
    process.setProgram(executable);
    process.setArguments(arguments);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start();
    if (!process.waitForStarted(-1))
        throw ProcessLaunchError(QStringLiteral("Impossible de lancer %1 : %2")
                                     .arg(QFileInfo(executable).fileName(), process.errorString()));
    process.waitForFinished(-1);

    FFmpegOutcome outcome;
    outcome.exitStatus = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    outcome.errorOutput = decodeUtf8(process.readAllStandardError());
    return outcome;
}

QCoro::Task<> inBackground(std::function<void()> work) {
    // Shared with the worker, which may outlive this frame if the awaiting task is dropped.
    auto failure = std::make_shared<std::exception_ptr>();
    // Started outside the co_await expression: g++ 12 mishandles temporaries inside one.
    QFuture<void> done = QtConcurrent::run(&exportPool(), [work = std::move(work), failure] {
        try {
            work();
        } catch (...) {
            *failure = std::current_exception();
        }
    });
    co_await done;
    if (*failure)
        std::rethrow_exception(*failure);
}

QString pathArgument(const QString& path) {
    const QFileInfo info(path);
    return info.isAbsolute() ? path : info.absoluteFilePath();
}

QString inputPath(const QUrl& url) {
    return url.isLocalFile() ? url.toLocalFile() : url.toString();
}

QString tail(const QString& text, qsizetype count) {
    if (text.size() <= count)
        return text;
    qsizetype start = text.size() - count;
    if (text.at(start).isLowSurrogate())
        ++start;
    return text.mid(start);
}

} // namespace FFmpegProcess
