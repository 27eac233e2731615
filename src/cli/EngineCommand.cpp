#include "EngineCommand.h"

#include "Console.h"
#include "platform/UserError.h"
#include "runtime/PythonRuntimeService.h"
#include "runtime/ReferenceEngineInstaller.h"

namespace {

const QString kUsage = QStringLiteral("engine install-reference [--if-missing]");

QCoro::Task<int> installReference(const QStringList& options) {
    const bool ifMissing = options.contains(QStringLiteral("--if-missing"));
    for (const QString& option : options)
        if (option != QLatin1String("--if-missing")) {
            Console::err(
                QStringLiteral("Option inconnue : %1\nUtilisation : marlune %2").arg(option, kUsage));
            co_return ExitCode::usage;
        }
    PythonRuntimeService& runtime = PythonRuntimeService::shared();
    const auto tag = runtime.manifest().backendTag;
    if (ifMissing && tag && runtime.isBackendInstalled(*tag)) {
        Console::out(*tag);
        co_return ExitCode::success;
    }
    const auto source = ReferenceEngineInstaller::bundledSourceDir();
    if (!source) {
        Console::err(
            QStringLiteral("Moteur de référence introuvable (définissez MARLUNE_REFERENCE_ENGINE)."));
        co_return ExitCode::failure;
    }
    const QString installed = co_await ReferenceEngineInstaller::install(runtime, *source);
    Console::out(installed);
    co_return ExitCode::success;
}

QCoro::Task<int> runEngine(QStringList arguments) {
    const QString action = arguments.isEmpty() ? QString() : arguments.takeFirst();
    if (action == QLatin1String("install-reference")) {
        const int status = co_await installReference(arguments);
        co_return status;
    }
    Console::err(QStringLiteral("Utilisation : marlune %1").arg(kUsage));
    co_return ExitCode::usage;
}

} // namespace

Command engineCommand() {
    return Command{QStringLiteral("engine"), kUsage,
                   QStringLiteral("Installe le moteur de référence fourni avec Marlune (sans réseau)."),
                   runEngine};
}
