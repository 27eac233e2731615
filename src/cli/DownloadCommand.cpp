#include "DownloadCommand.h"

#include "Console.h"
#include "EngineCommandLine.h"

namespace {
const QString kUsage = QStringLiteral("download ID KIND [--engine-url URL]");

QCoro::Task<int> runDownload(QStringList arguments) {
    QString error;
    const std::optional<EngineCommandLine> line = EngineCommandLine::parse(arguments, 2, false, {}, &error);
    if (!line)
        co_return usageError(error, kUsage);
    const QString id = line->positional[0];
    const std::optional<StemKind> kind = StemKinds::fromRawValue(line->positional[1]);
    if (!kind)
        co_return usageError(QStringLiteral("Piste inconnue : %1").arg(line->positional[1]), kUsage);
    const std::unique_ptr<BackendService> backend = line->backend();
    const std::optional<QString> path = co_await backend->downloadStem(id, *kind);
    if (!path) {
        Console::err(
            QStringLiteral("Piste %1 indisponible pour la tâche %2.").arg(StemKinds::rawValue(*kind), id));
        co_return ExitCode::failure;
    }
    Console::out(*path);
    co_return ExitCode::success;
}
} // namespace

Command downloadCommand() {
    return Command{QStringLiteral("download"), kUsage,
                   QStringLiteral("Télécharge une piste dans le cache et affiche son chemin."), runDownload};
}
