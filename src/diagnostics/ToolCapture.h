#pragma once

#include <QCoro/QCoroTask>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// Runs a tool to its end, whatever its exit status, and keeps its output as text. No time limit.
// A tool that cannot be started, or whose output is not UTF-8, gives an empty text.
namespace ToolCapture {
// Standard output only (standard error is read apart and dropped), trimmed of white space at both ends.
QCoro::Task<QString> runTrimmed(QString executable, QStringList arguments, QProcessEnvironment environment);
// Standard output and standard error merged, untrimmed.
QCoro::Task<QString> runRaw(QString executable, QStringList arguments, QProcessEnvironment environment);
} // namespace ToolCapture
