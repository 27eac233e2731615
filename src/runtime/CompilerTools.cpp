// PythonRuntimeService: the C compiler needed by the engine's optional packages, and administrator commands.
#include "PythonRuntimeService.h"

#include "AdminCommandCancelled.h"
#include "SetupError.h"
#include "ToolRunner.h"
#include "platform/SettingsStore.h"

#include <QFileInfo>
#include <QStandardPaths>

namespace {
const QString unavailable = QStringLiteral(
    "⚠️ Outils de compilation indisponibles — séparation voix lead / chœurs désactivée");
// pkexec's statuses when the user dismissed the dialog or was not authorised.
constexpr int dismissedStatus = 126;
constexpr int notAuthorisedStatus = 127;
} // namespace

QCoro::Task<std::optional<QString>> PythonRuntimeService::compilerDescription() const {
    const QProcessEnvironment environment = cleanEnvironment();
    QString compiler = m_config.systemTools.compiler;
    if (!compiler.contains(QLatin1Char('/')))
        compiler = QStandardPaths::findExecutable(
            compiler, environment.value(QStringLiteral("PATH")).split(QLatin1Char(':'), Qt::SkipEmptyParts));
    if (compiler.isEmpty())
        co_return std::nullopt;
    ToolRunOptions options;
    options.environment = environment;
    const QStringList arguments{QStringLiteral("--version")};
    std::optional<QString> description;
    try {
        const QString output = co_await runTool(compiler, arguments, options);
        const QString firstLine = output.trimmed().section(QLatin1Char('\n'), 0, 0).trimmed();
        description = firstLine.isEmpty() ? QFileInfo(compiler).fileName() : firstLine;
    } catch (const SetupError&) {
    }
    co_return description;
}

QCoro::Task<bool> PythonRuntimeService::hasCompiler() const {
    const std::optional<QString> description = co_await compilerDescription();
    co_return description.has_value();
}

QCoro::Task<bool> PythonRuntimeService::ensureCompilerTools(bool allowInstall, Report report) {
    if (!report)
        report = [](const QString&) {};
    const bool present = co_await hasCompiler();
    if (present)
        co_return true;
    if (!allowInstall) {
        log(QStringLiteral("Outils de compilation absents (non demandés)"));
        co_return false;
    }
    if (!InstallLayout::isExecutable(m_config.systemTools.packageManager)) {
        log(unavailable);
        co_return false;
    }

    report(QStringLiteral("Installation des outils de compilation (mot de passe administrateur)…"));
    bool cancelled = false;
    bool failed = false;
    try {
        const QString command = QStringLiteral("apt-get install -y build-essential");
        const QString prompt =
            QStringLiteral("Marlune doit installer les outils de compilation (build-essential) pour compiler "
                           "un composant audio optionnel.");
        co_await runAdminCommand(command, prompt);
    } catch (const AdminCommandCancelled&) {
        cancelled = true;
    } catch (const SetupError&) {
        failed = true;
    }
    if (cancelled) {
        log(QStringLiteral("Annulé — séparation voix lead / chœurs désactivée (réactivable dans Réglages › "
                           "Composants)"));
        SettingsStore settings(m_config.settingsFile);
        settings.setCompilerToolsDeclined(true);
        settings.setInstallCompilerTools(false);
        settings.sync();
        co_return false;
    }
    if (failed) {
        log(unavailable);
        co_return false;
    }
    log(QStringLiteral("✅ Outils de compilation installés"));
    const bool installed = co_await hasCompiler();
    co_return installed;
}

QCoro::Task<> PythonRuntimeService::runAdminCommand(QString command, QString prompt) {
    log(prompt);
    const QStringList arguments{QStringLiteral("/bin/sh"), QStringLiteral("-c"), command};
    ToolRunOptions options;
    options.environment = cleanEnvironment();
    QString failure;
    int status = 0;
    try {
        const QString launcher = m_config.systemTools.adminLauncher;
        co_await runTool(launcher, arguments, options);
    } catch (const ToolExitError& error) {
        failure = error.message();
        status = error.exitStatus();
    } catch (const SetupError& error) {
        failure = error.message();
    }
    if (failure.isEmpty())
        co_return;
    const QString message = QStringLiteral("Commande administrateur non exécutée : %1").arg(failure);
    if (status == dismissedStatus || status == notAuthorisedStatus)
        throw AdminCommandCancelled(message);
    throw SetupError(message);
}
