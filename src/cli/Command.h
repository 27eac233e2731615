#pragma once

#include <QCoro/QCoroTask>
#include <QList>
#include <QString>
#include <QStringList>
#include <functional>

// Exit codes shared by every subcommand.
namespace ExitCode {
constexpr int success = 0;
constexpr int failure = 1;
constexpr int usage = 2;
} // namespace ExitCode

// One `marlune <name> …` subcommand. `run` gets the arguments after the name and yields the exit code.
struct Command {
    QString name;
    QString usage;   // e.g. "health [--engine-url URL]"
    QString summary; // one French line for --help
    std::function<QCoro::Task<int>(QStringList arguments)> run;
};

// Every subcommand, in the order --help lists them.
QList<Command> allCommands();
