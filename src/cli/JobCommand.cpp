#include "JobCommand.h"

#include "Console.h"
#include "EngineCommandLine.h"
#include "JobDescription.h"

namespace {
const QString kUsage = QStringLiteral("job ID [--json] [--engine-url URL]");

QCoro::Task<int> runJob(QStringList arguments) {
    QString error;
    const std::optional<EngineCommandLine> line = EngineCommandLine::parse(arguments, 1, true, {}, &error);
    if (!line)
        co_return usageError(error, kUsage);
    const std::unique_ptr<BackendService> backend = line->backend();
    const QString id = line->positional.first();
    const StemJob job = co_await backend->getJob(id);
    Console::out(line->json ? QString::fromUtf8(job.toJsonText()) : JobDescription::details(job));
    co_return ExitCode::success;
}
} // namespace

Command jobCommand() {
    return Command{QStringLiteral("job"), kUsage, QStringLiteral("Affiche une tâche du moteur."), runJob};
}
