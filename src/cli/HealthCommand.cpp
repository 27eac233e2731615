#include "HealthCommand.h"

#include "Console.h"
#include "EngineCommandLine.h"

namespace {
const QString kUsage = QStringLiteral("health [--engine-url URL]");

QCoro::Task<int> runHealth(QStringList arguments) {
    QString error;
    const std::optional<EngineCommandLine> line = EngineCommandLine::parse(arguments, 0, false, {}, &error);
    if (!line)
        co_return usageError(error, kUsage);
    const std::unique_ptr<BackendService> backend = line->backend();
    const std::optional<BackendHealth> health = co_await backend->health();
    if (!health) {
        Console::err(QStringLiteral("Le moteur ne répond pas à %1").arg(line->engine.toString()));
        co_return ExitCode::failure;
    }
    Console::out(QString::fromUtf8(health->toJsonText()));
    co_return health->isOk() ? ExitCode::success : ExitCode::failure;
}
} // namespace

Command healthCommand() {
    return Command{QStringLiteral("health"), kUsage,
                   QStringLiteral("État du moteur (JSON) ; code 0 quand il est prêt."), runHealth};
}
