// PythonRuntimeService: launching, watching and stopping the engine process, and its model warm-up.
#include "PythonRuntimeService.h"
#include "SetupError.h"
#include "ToolRunner.h"
#include "log/AppLogger.h"
#include "platform/PortListeners.h"

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QtConcurrent>
#include <csignal>

using namespace std::chrono_literals;

namespace {
constexpr auto kStopPoll = 100ms;
constexpr int kStopPolls = 40; // 4 seconds
} // namespace

QCoro::Task<> PythonRuntimeService::startBackend(int port) {
    m_port = port;
    if (m_isRunning)
        co_return;
    const QString tag = manifest().backendTag.value_or(QString());
    if (tag.isEmpty() || !isBackendInstalled(tag)) {
        log(QStringLiteral("⚠️ Backend non installé — configuration requise"));
        co_return;
    }

    QFuture<void> portFreed =
        QtConcurrent::run([port] { PortListeners::freePort(static_cast<quint16>(port)); });
    co_await portFreed;

    m_runningTag.reset();
    purgeOldBackends();
    QDir().mkpath(m_layout.dataDir());
    QDir().mkpath(m_layout.jobsDir());

    delete m_backendLog;
    m_backendLog = new QFile(m_layout.backendLogPath(), this);
    if (!m_backendLog->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        delete m_backendLog;
        m_backendLog = nullptr;
    }

    auto* process = new QProcess(this);
    process->setProgram(m_layout.backendPython(tag));
    process->setArguments({QStringLiteral("-m"), QStringLiteral("uvicorn"), QStringLiteral("app.main:app"),
                           QStringLiteral("--host"), QStringLiteral("127.0.0.1"), QStringLiteral("--port"),
                           QString::number(port), QStringLiteral("--timeout-graceful-shutdown"),
                           QStringLiteral("2")});
    process->setWorkingDirectory(m_layout.backendDir(tag));
    process->setProcessEnvironment(backendEnvironment());
    process->setProcessChannelMode(QProcess::MergedChannels);
    process->setStandardInputFile(QProcess::nullDevice());
    m_outputDecoder.resetState();
    connect(process, &QProcess::readyReadStandardOutput, this,
            [this, process] { handleEngineOutput(process); });
    connect(process, &QProcess::finished, this, [this, process] { handleEngineExit(process); });

    if (!launchProcess(*process)) {
        log(QStringLiteral("❌ %1").arg(process->errorString()));
        process->deleteLater();
        co_return;
    }
    m_process = process;
    m_runningTag = tag;
    setRunning(true);
    setNeedsRestart(false);
    log(QStringLiteral("✅ Backend %1 → http://127.0.0.1:%2").arg(tag).arg(port));
}

void PythonRuntimeService::handleEngineOutput(QProcess* process) {
    const QByteArray chunk = process->readAllStandardOutput();
    if (chunk.isEmpty())
        return;
    if (m_backendLog && process == m_process) {
        m_backendLog->write(chunk);
        m_backendLog->flush();
    }
    const QString text = m_outputDecoder.decode(chunk);
    if (m_outputDecoder.hasError()) { // undecodable output is kept in backend.log only
        m_outputDecoder.resetState();
        return;
    }
    if (text.isEmpty())
        return;
    AppLogger::shared().log(text, LogLevel::info);
    appendSetupLog(text);
}

void PythonRuntimeService::handleEngineExit(QProcess* process) {
    handleEngineOutput(process);
    process->deleteLater();
    if (process != m_process)
        return; // an engine this service already let go of
    if (m_backendLog) {
        m_backendLog->close();
        delete m_backendLog;
        m_backendLog = nullptr;
    }
    m_process = nullptr;
    m_runningTag.reset();
    setRunning(false);
    setRunningVersion(std::nullopt);
}

void PythonRuntimeService::forgetProcess() {
    if (m_process) {
        QProcess* process = m_process;
        m_process = nullptr;
        if (process->state() == QProcess::NotRunning)
            process->deleteLater();
    }
    m_runningTag.reset();
    setRunning(false);
}

QCoro::Task<> PythonRuntimeService::stopBackend() {
    if (!m_process)
        co_return;
    QPointer<QProcess> process = m_process;
    process->terminate();
    for (int i = 0; i < kStopPolls && process && process->state() != QProcess::NotRunning; ++i)
        co_await QCoro::sleepFor(kStopPoll);
    if (process && process->state() != QProcess::NotRunning)
        ::kill(static_cast<pid_t>(process->processId()), SIGKILL);
    if (process == m_process)
        forgetProcess();
}

void PythonRuntimeService::stopBackendBlocking() {
    if (!m_process)
        return;
    QProcess* process = m_process;
    process->terminate();
    if (!process->waitForFinished(kStopPolls * int(kStopPoll.count()))) {
        ::kill(static_cast<pid_t>(process->processId()), SIGKILL);
        process->waitForFinished(1000);
    }
    forgetProcess();
}

QCoro::Task<> PythonRuntimeService::restartBackend() {
    co_await stopBackend();
    co_await QCoro::sleepFor(500ms);
    co_await startBackend(m_port);
}

QCoro::Task<> PythonRuntimeService::warmUpModels(Report report) {
    const QString tag = manifest().backendTag.value_or(QString());
    if (tag.isEmpty() || !isBackendInstalled(tag))
        throw SetupError(QStringLiteral("Backend non installé — configuration requise"));
    QStringList failed;
    ToolRunOptions options;
    options.workingDirectory = m_layout.backendDir(tag);
    options.environment = backendEnvironment();
    options.onLine = [&failed, &report](const QString& line) {
        if (report)
            report(line);
        if (line.startsWith(QLatin1String("WARMUP_FAILED "))) {
            const QStringList words = line.mid(14).split(QLatin1Char(' '), Qt::SkipEmptyParts);
            if (!words.isEmpty())
                failed.append(words.first());
        }
    };
    const QStringList arguments{QStringLiteral("-m"), QStringLiteral("app.pipeline.warmup")};
    const QString python = m_layout.backendPython(tag);
    co_await runTool(python, arguments, options);
    manifest().modelsWarmedTag = tag;
    manifest().modelsFailed = failed;
    saveManifest();
}
