#include "EngineCommand.h"

#include "Console.h"
#include "EngineAddress.h"
#include "app/AppState.h"
#include "diagnostics/EngineStatusText.h"
#include "engine_client/BackendService.h"
#include "platform/PortListeners.h"
#include "platform/UserError.h"
#include "runtime/PythonRuntimeService.h"
#include "runtime/ReferenceEngineInstaller.h"

#include <QCoreApplication>
#include <QCoro/QCoroSignal>
#include <QTimer>
#include <csignal>

namespace {

const QString kUsage =
    QStringLiteral("engine install-reference [--if-missing] | engine start|stop|status [--engine-url URL]");

volatile std::sig_atomic_t interrupted = 0;
void onInterrupt(int) {
    interrupted = 1;
}

// Resolves once SIGINT or SIGTERM arrived, or the engine ended.
QCoro::Task<> untilInterrupted(const PythonRuntimeService& runtime) {
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    QTimer poll;
    poll.start(100);
    while (!interrupted && runtime.isRunning())
        co_await qCoro(&poll, &QTimer::timeout);
}

// Starts the engine (or adopts a running one), keeps it until interrupted, then stops what it started.
QCoro::Task<int> start(QUrl address) {
    PythonRuntimeService& runtime = PythonRuntimeService::shared();
    BackendService::Config config = BackendService::defaultConfig();
    config.baseURL = address;
    BackendService backend(config);
    AppState state(backend, runtime, address.port(8000));
    co_await state.startupSequence();
    if (state.screen() == AppScreen::setup) {
        Console::err(QStringLiteral("Moteur non installé : lancez « marlune engine install-reference »."));
        co_return ExitCode::failure;
    }
    if (!state.backendReady()) {
        Console::err(QStringLiteral("Le moteur ne répond pas (%1).").arg(address.toString()));
        co_await runtime.stopBackend();
        co_return ExitCode::failure;
    }
    const bool started = runtime.isRunning();
    Console::out(
        QStringLiteral("Moteur prêt : %1 (%2)")
            .arg(address.toString(), started ? QStringLiteral("démarré") : QStringLiteral("déjà actif")));
    if (!started)
        co_return ExitCode::success;
    Console::err(QStringLiteral("Ctrl+C arrête le moteur."));
    co_await untilInterrupted(runtime);
    co_await runtime.stopBackend();
    co_return ExitCode::success;
}

QCoro::Task<int> status(QUrl address) {
    BackendService::Config config = BackendService::defaultConfig();
    config.baseURL = address;
    BackendService backend(config);
    const std::optional<BackendHealth> health = co_await backend.health();
    if (!health) {
        Console::out(EngineStatusText::unreachable(address));
        co_return ExitCode::failure;
    }
    Console::out(QStringLiteral("%1 %2 (%3)")
                     .arg(health->isOk() ? QStringLiteral("✅") : QStringLiteral("⚠️"),
                          EngineStatusText::reachable(address, health->version.value_or(QStringLiteral("?"))),
                          health->status));
    co_return health->isOk() ? ExitCode::success : ExitCode::failure;
}

int stop(const QUrl& address) {
    const quint16 port = static_cast<quint16>(address.port(8000));
    if (PortListeners::find(port).isEmpty()) {
        Console::out(QStringLiteral("Aucun moteur sur le port %1.").arg(port));
        return ExitCode::success;
    }
    PortListeners::freePort(port);
    Console::out(QStringLiteral("Moteur arrêté (port %1).").arg(port));
    return ExitCode::success;
}

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
        const int result = co_await installReference(arguments);
        co_return result;
    }
    QString error;
    const std::optional<QUrl> address = takeEngineAddress(arguments, &error);
    if (!address || !arguments.isEmpty()) {
        Console::err((address ? QStringLiteral("Argument inattendu : %1").arg(arguments.value(0)) : error) +
                     QStringLiteral("\nUtilisation : marlune ") + kUsage);
        co_return ExitCode::usage;
    }
    const QUrl url = *address;
    if (action == QLatin1String("start")) {
        const int result = co_await start(url);
        co_return result;
    }
    if (action == QLatin1String("status")) {
        const int result = co_await status(url);
        co_return result;
    }
    if (action == QLatin1String("stop"))
        co_return stop(url);
    Console::err(QStringLiteral("Utilisation : marlune %1").arg(kUsage));
    co_return ExitCode::usage;
}

} // namespace

Command engineCommand() {
    return Command{QStringLiteral("engine"), kUsage,
                   QStringLiteral("Installe le moteur de référence fourni avec Marlune (sans réseau)."),
                   runEngine};
}
