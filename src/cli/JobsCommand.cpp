#include "JobsCommand.h"

#include "Console.h"
#include "EngineCommandLine.h"
#include "JobDescription.h"

namespace {
const QString kUsage = QStringLiteral("jobs [--json] [--engine-url URL]");

QCoro::Task<int> runJobs(QStringList arguments) {
    QString error;
    const std::optional<EngineCommandLine> line = EngineCommandLine::parse(arguments, 0, true, {}, &error);
    if (!line)
        co_return usageError(error, kUsage);
    const std::unique_ptr<BackendService> backend = line->backend();
    const QList<StemJob> jobs = co_await backend->listJobs();
    if (line->json) {
        Console::out(QString::fromUtf8(StemJob::listToJsonText(jobs)));
    } else if (jobs.isEmpty()) {
        Console::out(QStringLiteral("Aucune tâche."));
    } else {
        for (const StemJob& job : jobs)
            Console::out(JobDescription::listLine(job));
    }
    co_return ExitCode::success;
}
} // namespace

Command jobsCommand() {
    return Command{QStringLiteral("jobs"), kUsage,
                   QStringLiteral("Liste les tâches du moteur, les plus récentes d'abord."), runJobs};
}
