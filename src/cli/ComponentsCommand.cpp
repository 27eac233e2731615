#include "ComponentsCommand.h"

#include "ComponentTable.h"
#include "Console.h"
#include "runtime/PythonRuntimeService.h"

namespace {

const QString kUsage = QStringLiteral("components [--offline]");

QCoro::Task<int> components(QStringList arguments) {
    const bool offline = arguments.removeAll(QStringLiteral("--offline")) > 0;
    if (!arguments.isEmpty()) {
        Console::err(QStringLiteral("Argument inattendu : %1\nUtilisation : marlune %2")
                         .arg(arguments.first(), kUsage));
        co_return ExitCode::usage;
    }
    PythonRuntimeService& runtime = PythonRuntimeService::shared();
    const bool online = !offline;
    co_await runtime.refreshComponents(online);
    Console::out(ComponentTable::text(runtime.components()));
    co_return ExitCode::success;
}

} // namespace

Command componentsCommand() {
    return Command{
        QStringLiteral("components"), kUsage,
        QStringLiteral(
            "Liste les composants installés et leurs dernières versions (--offline : sans réseau)."),
        components};
}
