#include "CancelCommand.h"

#include "EngineCommandLine.h"

namespace {
const QString kUsage = QStringLiteral("cancel ID [--engine-url URL]");

QCoro::Task<int> runCancel(QStringList arguments) {
    QString error;
    const std::optional<EngineCommandLine> line = EngineCommandLine::parse(arguments, 1, false, {}, &error);
    if (!line)
        co_return usageError(error, kUsage);
    const std::unique_ptr<BackendService> backend = line->backend();
    const QString id = line->positional.first();
    co_await backend->cancelJob(id);
    co_return ExitCode::success;
}
} // namespace

Command cancelCommand() {
    return Command{QStringLiteral("cancel"), kUsage, QStringLiteral("Annule une tâche en cours."), runCancel};
}
