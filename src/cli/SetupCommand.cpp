#include "SetupCommand.h"

#include "Console.h"
#include "ProgressBar.h"
#include "runtime/PythonRuntimeService.h"

#include <QCoro/QCoroFuture>
#include <QPromise>
#include <cmath>
#include <memory>

namespace {

const QString kUsage = QStringLiteral("setup");

// Runs the pipeline to its end; the failure's message, or nothing.
QCoro::Task<std::optional<QString>> setupToTheEnd(PythonRuntimeService& runtime) {
    auto promise = std::make_shared<QPromise<std::optional<QString>>>();
    QFuture<std::optional<QString>> outcome = promise->future();
    promise->start();
    const auto progress = [](const QString& title, const QString& detail, double fraction) {
        ProgressBar::clear();
        Console::out(QStringLiteral("[%1] %2").arg(title, detail));
        ProgressBar::show(std::round(fraction * 1000.0) / 10.0, QStringLiteral("%1 — %2").arg(title, detail));
    };
    runtime.runSetup(progress, [promise](const std::optional<QString>& error) {
        promise->addResult(error);
        promise->finish();
    });
    const std::optional<QString> error = co_await outcome;
    co_return error;
}

QCoro::Task<int> setup(QStringList arguments) {
    if (!arguments.isEmpty()) {
        Console::err(QStringLiteral("Argument inattendu : %1\nUtilisation : marlune %2")
                         .arg(arguments.first(), kUsage));
        co_return ExitCode::usage;
    }
    PythonRuntimeService& runtime = PythonRuntimeService::shared();
    const std::optional<QString> error = co_await setupToTheEnd(runtime);
    ProgressBar::clear();
    if (error) {
        Console::err(*error);
        co_return ExitCode::failure;
    }
    ProgressBar::show(100.0, QStringLiteral("Configuration terminée ✓"));
    Console::errRaw(QStringLiteral("\n"));
    co_return ExitCode::success;
}

} // namespace

Command setupCommand() {
    return Command{QStringLiteral("setup"), kUsage,
                   QStringLiteral("Installe ou complète le moteur Halvorn et tous ses composants."), setup};
}
