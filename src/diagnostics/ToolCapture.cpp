#include "diagnostics/ToolCapture.h"

#include "runtime/ToolRunner.h"

#include <QCoro/QCoroSignal>
#include <QProcess>
#include <QStringDecoder>

namespace {

QString strictUtf8(const QByteArray& bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder(bytes);
    return decoder.hasError() ? QString() : text;
}

QCoro::Task<QString> capture(QString executable, QStringList arguments, QProcessEnvironment environment,
                             QProcess::ProcessChannelMode channels) {
    QProcess process;
    process.setProgram(executable);
    process.setArguments(arguments);
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(channels);
    process.setStandardInputFile(QProcess::nullDevice());
    if (!launchProcess(process))
        co_return QString();
    if (process.state() != QProcess::NotRunning)
        co_await qCoro(&process, &QProcess::finished);
    co_return strictUtf8(process.readAllStandardOutput());
}

} // namespace

namespace ToolCapture {

QCoro::Task<QString> runTrimmed(QString executable, QStringList arguments, QProcessEnvironment environment) {
    QCoro::Task<QString> run = capture(executable, arguments, environment, QProcess::SeparateChannels);
    const QString output = co_await run;
    co_return output.trimmed();
}

QCoro::Task<QString> runRaw(QString executable, QStringList arguments, QProcessEnvironment environment) {
    QCoro::Task<QString> run = capture(executable, arguments, environment, QProcess::MergedChannels);
    const QString output = co_await run;
    co_return output;
}

} // namespace ToolCapture
