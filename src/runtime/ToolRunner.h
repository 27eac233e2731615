#pragma once

#include "SetupError.h"

#include <QCoro/QCoroTask>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

// How one child process is run; every field is optional.
struct ToolRunOptions {
    QString workingDirectory;                        // default: the application's
    std::optional<QProcessEnvironment> environment;  // default: the application's
    std::function<void(const QString& line)> onLine; // each complete output line, as it arrives
};

class QProcess;

// A tool that ran and ended with another status than 0 (-1 when it crashed).
class ToolExitError : public SetupError {
public:
    ToolExitError(QString message, int exitStatus)
        : SetupError(std::move(message))
        , m_exitStatus(exitStatus) {}
    int exitStatus() const { return m_exitStatus; }

private:
    int m_exitStatus;
};

// Starts a configured process; true once it runs, false when it cannot (see errorString()).
// The launch itself (fork and exec) is all that is waited for.
bool launchProcess(QProcess& process);

// Runs `executable` with `arguments` (never through a shell) to completion, standard output and standard
// error merged, standard input the null device. Returns the whole output as UTF-8 text.
// Throws SetupError("Impossible de lancer {name} : {reason}") when it cannot start, and
// ToolExitError("{name} (code {status})\n{last 8 non-empty lines}") when it exits with another status than 0.
QCoro::Task<QString> runTool(QString executable, QStringList arguments, ToolRunOptions options);
// The same with default options. Not a coroutine itself, so the options it makes are no temporary of the
// caller's co_await expression.
inline QCoro::Task<QString> runTool(const QString& executable, const QStringList& arguments) {
    return runTool(executable, arguments, ToolRunOptions{});
}
