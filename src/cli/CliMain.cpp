#include "CliMain.h"

#include "Command.h"
#include "Console.h"

#include <BuildInfo.h>
#include <QCoreApplication>
#include <QTimer>

namespace {

QString helpText() {
    QString text = QStringLiteral("Marlune %1 — séparation de pistes en local\n\n"
                                  "Utilisation : marlune [commande] [options]\n"
                                  "Sans commande, la fenêtre s'ouvre.\n\nCommandes :\n")
                       .arg(QStringLiteral(MARLUNE_VERSION));
    for (const Command& command : allCommands())
        text += QStringLiteral("  %1\n      %2\n").arg(command.usage, command.summary);
    text += QStringLiteral("  --version\n      Affiche la version.\n  --help\n      Affiche cette aide.");
    return text;
}

QCoro::Task<> runCommand(Command command, QStringList arguments, int* exitCode) {
    try {
        *exitCode = co_await command.run(arguments);
    } catch (const std::exception& error) {
        Console::err(QString::fromUtf8(error.what()));
        *exitCode = ExitCode::failure;
    }
    QCoreApplication::exit(*exitCode);
}

} // namespace

int runCli(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Marlune"));
    QCoreApplication::setApplicationName(QStringLiteral("Marlune"));
    QCoreApplication::setApplicationVersion(QStringLiteral(MARLUNE_VERSION));
    QStringList arguments = app.arguments().mid(1);
    const QString name = arguments.takeFirst();
    if (name == QLatin1String("--version") || name == QLatin1String("-v")) {
        Console::out(QStringLiteral("marlune %1").arg(QStringLiteral(MARLUNE_VERSION)));
        return ExitCode::success;
    }
    if (name == QLatin1String("--help") || name == QLatin1String("-h") || name == QLatin1String("help")) {
        Console::out(helpText());
        return ExitCode::success;
    }
    for (const Command& command : allCommands()) {
        if (command.name != name)
            continue;
        int exitCode = ExitCode::failure;
        QTimer::singleShot(0, &app, [&] { runCommand(command, arguments, &exitCode); });
        app.exec();
        return exitCode;
    }
    Console::err(QStringLiteral("Commande inconnue : %1 (voir marlune --help)").arg(name));
    return ExitCode::usage;
}
