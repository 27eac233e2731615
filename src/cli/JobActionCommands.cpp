#include "JobActionCommands.h"

#include "EngineCommandLine.h"

namespace {

using JobAction = QCoro::Task<> (BackendService::*)(QString id);

QCoro::Task<int> runJobAction(QStringList arguments, QString usage, JobAction action) {
    QString error;
    const std::optional<EngineCommandLine> line = EngineCommandLine::parse(arguments, 1, false, {}, &error);
    if (!line)
        co_return usageError(error, usage);
    const std::unique_ptr<BackendService> backend = line->backend();
    const QString id = line->positional.first();
    QCoro::Task<> acting = (backend.get()->*action)(id);
    co_await acting;
    co_return ExitCode::success;
}

Command jobActionCommand(const QString& name, const QString& summary, JobAction action) {
    const QString usage = name + QStringLiteral(" ID [--engine-url URL]");
    return Command{name, usage, summary, [usage, action](QStringList arguments) {
                       return runJobAction(std::move(arguments), usage, action);
                   }};
}

} // namespace

Command cancelCommand() {
    return jobActionCommand(QStringLiteral("cancel"), QStringLiteral("Annule une tâche en cours."),
                            &BackendService::cancelJob);
}

Command trashCommand() {
    return jobActionCommand(QStringLiteral("trash"),
                            QStringLiteral("Place une tâche dans la corbeille du moteur."),
                            &BackendService::trashJob);
}
