#include "ToolRunner.h"

#include "OutputBox.h"
#include "SetupError.h"

#include <QCoro/QCoroSignal>
#include <QFileInfo>
#include <QProcess>

namespace {
QString lastNonEmptyLines(const QString& text, int count) {
    QStringList lines;
    for (const QString& line : text.split(QLatin1Char('\n')))
        if (!line.trimmed().isEmpty())
            lines.append(line.endsWith(QLatin1Char('\r')) ? line.chopped(1) : line);
    return lines.mid(std::max<qsizetype>(0, lines.size() - count)).join(QLatin1Char('\n'));
}
} // namespace

bool launchProcess(QProcess& process) {
    process.start();
    return process.waitForStarted(-1);
}

QCoro::Task<QString> runTool(QString executable, QStringList arguments, ToolRunOptions options) {
    const QString name = QFileInfo(executable).fileName();
    QProcess process;
    process.setProgram(executable);
    process.setArguments(arguments);
    if (!options.workingDirectory.isEmpty())
        process.setWorkingDirectory(options.workingDirectory);
    if (options.environment)
        process.setProcessEnvironment(*options.environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardInputFile(QProcess::nullDevice());

    OutputBox box;
    QObject::connect(&process, &QProcess::readyReadStandardOutput, &process,
                     [&] { box.append(process.readAllStandardOutput(), options.onLine); });

    if (!launchProcess(process))
        throw SetupError(QStringLiteral("Impossible de lancer %1 : %2").arg(name, process.errorString()));
    if (process.state() != QProcess::NotRunning)
        co_await qCoro(&process, &QProcess::finished);
    box.append(process.readAllStandardOutput(), options.onLine);

    const QString output = box.text();
    const bool succeeded = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    if (!succeeded) {
        const int status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        throw ToolExitError(
            QStringLiteral("%1 (code %2)\n%3").arg(name).arg(status).arg(lastNonEmptyLines(output, 8)),
            status);
    }
    co_return output;
}
