#include "UpdateCommand.h"

#include "Console.h"
#include "runtime/PythonRuntimeService.h"

namespace {

const QString kUsage = QStringLiteral("update");

QCoro::Task<int> update(QStringList arguments) {
    if (!arguments.isEmpty()) {
        Console::err(QStringLiteral("Argument inattendu : %1\nUtilisation : marlune %2")
                         .arg(arguments.first(), kUsage));
        co_return ExitCode::usage;
    }
    PythonRuntimeService& runtime = PythonRuntimeService::shared();
    const PythonRuntimeService::Report lines = [](const QString& line) { Console::out(line); };
    const UpdateOutcome outcome = co_await runtime.updateAll(lines);
    co_return outcome.failed() ? ExitCode::failure : ExitCode::success;
}

} // namespace

Command updateCommand() {
    return Command{QStringLiteral("update"), kUsage,
                   QStringLiteral("Met à jour tous les composants (moteur, outils, yt-dlp, modèles)."),
                   update};
}
