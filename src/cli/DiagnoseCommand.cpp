#include "DiagnoseCommand.h"

#include "Console.h"
#include "EngineAddress.h"
#include "diagnostics/DiagnosticReport.h"
#include "engine_client/BackendService.h"
#include "runtime/PythonRuntimeService.h"

namespace {

const QString kUsage = QStringLiteral("diagnose [--engine-test] [--engine-url URL]");

QCoro::Task<int> runDiagnose(QStringList arguments) {
    QString error;
    const std::optional<QUrl> address = takeEngineAddress(arguments, &error);
    const bool engineTest = arguments.removeAll(QStringLiteral("--engine-test")) > 0;
    if (!address || !arguments.isEmpty()) {
        Console::err((address ? QStringLiteral("Argument inattendu : %1").arg(arguments.value(0)) : error) +
                     QStringLiteral("\nUtilisation : marlune ") + kUsage);
        co_return ExitCode::usage;
    }
    BackendService::Config backendConfig = BackendService::defaultConfig();
    backendConfig.baseURL = *address;
    BackendService backend(backendConfig);

    // Standard output carries the report itself, without the "[Diag] " copies.
    DiagnosticReport::Config config = DiagnosticReport::defaultConfig();
    config.console = [](const QString&) {};
    DiagnosticReport report(PythonRuntimeService::shared(), backend, config);
    QObject::connect(&report, &DiagnosticReport::lineAppended,
                     [](const QString& line) { Console::out(line); });

    if (engineTest) {
        QCoro::Task<bool> test = report.runEngineTest();
        const bool followed = co_await test;
        co_return followed ? ExitCode::success : ExitCode::failure;
    }
    QCoro::Task<> diagnostic = report.runFullDiagnostic();
    co_await diagnostic;
    co_return ExitCode::success;
}

} // namespace

Command diagnoseCommand() {
    return Command{QStringLiteral("diagnose"), kUsage,
                   QStringLiteral("Rapport de diagnostic (FFmpeg, yt-dlp, composants, moteur) ; "
                                  "--engine-test : tâche de test suivie 30 s."),
                   runDiagnose};
}
