#include "FollowCommand.h"

#include "Console.h"
#include "EngineCommandLine.h"
#include "JobDescription.h"
#include "app/AppState.h"
#include "engine_client/SSEClient.h"

#include <QEventLoop>

namespace {
const QString kUsage = QStringLiteral("follow ID [--json] [--engine-url URL]");

// 0 done, 1 error, 3 cancelled or stopped, 4 no final status.
int exitCodeFor(const std::optional<StemJob>& last) {
    if (!last || !JobStatuses::isFinal(last->status))
        return FollowExitCode::unfinished;
    switch (last->status) {
    case JobStatus::done:
        return ExitCode::success;
    case JobStatus::error:
        return ExitCode::failure;
    default:
        return FollowExitCode::cancelled;
    }
}

QCoro::Task<int> runFollow(QStringList arguments) {
    QString error;
    const std::optional<EngineCommandLine> line = EngineCommandLine::parse(arguments, 1, true, {}, &error);
    if (!line)
        co_return usageError(error, kUsage);
    const std::unique_ptr<BackendService> backend = line->backend();
    SSEClient client(backend->eventsURL(line->positional.first()));
    client.console = printToStandardError;
    std::optional<StemJob> last;
    std::optional<QString> failure;
    QEventLoop loop;
    const bool json = line->json;
    client.onEvent = [&last, json](const SSEJobEvent& event) {
        last = event.job;
        Console::out(json ? QString::fromUtf8(event.job.toJsonText())
                          : JobDescription::progressLine(event.job));
    };
    client.onError = [&failure](const TransportError& transportError) { failure = transportError.message(); };
    client.onComplete = [&loop] { loop.quit(); };
    client.start();
    loop.exec();
    if (failure) {
        Console::err(*failure);
        co_return ExitCode::failure;
    }
    if (last && last->status == JobStatus::error)
        Console::err(AppState::errorText(*last).value_or(QStringLiteral("La séparation a échoué.")));
    co_return exitCodeFor(last);
}
} // namespace

Command followCommand() {
    return Command{
        QStringLiteral("follow"), kUsage,
        QStringLiteral("Suit une tâche jusqu'à sa fin (0 terminée, 1 échec, 3 annulée, 4 flux interrompu)."),
        runFollow};
}
