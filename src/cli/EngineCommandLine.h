#pragma once

#include "engine_client/BackendService.h"

#include <QMap>
#include <QStringList>
#include <QUrl>
#include <memory>
#include <optional>

// The arguments of a subcommand that calls the engine: `--engine-url URL`, an optional `--json`, options
// with a value, and a fixed number of positional arguments.
struct EngineCommandLine {
    QUrl engine;
    bool json = false;
    QStringList positional;
    QMap<QString, QString> values; // "--stems" → "vocals,drums"

    // None, with a French message in `error`, on an unknown option, a missing value or a wrong number of
    // positional arguments.
    static std::optional<EngineCommandLine> parse(QStringList arguments, int positionalCount,
                                                  bool acceptsJson, const QStringList& valueOptions,
                                                  QString* error);

    // A client of the engine at `engine`, otherwise configured as the application's own; its console
    // lines go to standard error, leaving standard output to the command's result.
    std::unique_ptr<BackendService> backend() const;
};

// Console lines of the engine client during a command.
void printToStandardError(const QString& line);

// "{error}\nUtilisation : marlune {usage}" on standard error; the usage exit code.
int usageError(const QString& error, const QString& usage);
