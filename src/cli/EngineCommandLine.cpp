#include "EngineCommandLine.h"

#include "Command.h"
#include "Console.h"
#include "EngineAddress.h"

std::optional<EngineCommandLine> EngineCommandLine::parse(QStringList arguments, int positionalCount,
                                                          bool acceptsJson, const QStringList& valueOptions,
                                                          QString* error) {
    EngineCommandLine line;
    const std::optional<QUrl> engine = takeEngineAddress(arguments, error);
    if (!engine)
        return std::nullopt;
    line.engine = *engine;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (acceptsJson && argument == QLatin1String("--json")) {
            line.json = true;
        } else if (valueOptions.contains(argument)) {
            if (i + 1 >= arguments.size()) {
                *error = QStringLiteral("%1 attend une valeur.").arg(argument);
                return std::nullopt;
            }
            line.values.insert(argument, arguments[++i]);
        } else if (argument.startsWith(QLatin1String("--"))) {
            *error = QStringLiteral("Option inconnue : %1").arg(argument);
            return std::nullopt;
        } else {
            line.positional.append(argument);
        }
    }
    if (line.positional.size() != positionalCount) {
        *error = line.positional.size() < positionalCount
                     ? QStringLiteral("Argument manquant.")
                     : QStringLiteral("Argument en trop : %1").arg(line.positional.value(positionalCount));
        return std::nullopt;
    }
    return line;
}

std::unique_ptr<BackendService> EngineCommandLine::backend() const {
    BackendService::Config config = BackendService::defaultConfig();
    config.baseURL = engine;
    config.console = printToStandardError;
    return std::make_unique<BackendService>(config);
}

void printToStandardError(const QString& line) {
    Console::err(line);
}

int usageError(const QString& error, const QString& usage) {
    Console::err(QStringLiteral("%1\nUtilisation : marlune %2").arg(error, usage));
    return ExitCode::usage;
}
