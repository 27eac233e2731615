#include "TrashCommand.h"

#include "EngineCommandLine.h"

namespace {
const QString kUsage = QStringLiteral("trash ID [--engine-url URL]");

QCoro::Task<int> runTrash(QStringList arguments) {
    QString error;
    const std::optional<EngineCommandLine> line = EngineCommandLine::parse(arguments, 1, false, {}, &error);
    if (!line)
        co_return usageError(error, kUsage);
    const std::unique_ptr<BackendService> backend = line->backend();
    const QString id = line->positional.first();
    co_await backend->trashJob(id);
    co_return ExitCode::success;
}
} // namespace

Command trashCommand() {
    return Command{QStringLiteral("trash"), kUsage,
                   QStringLiteral("Place une tâche dans la corbeille du moteur."), runTrash};
}
