#include "Command.h"
#include "EngineCommand.h"

QList<Command> allCommands() {
    QList<Command> commands;
    commands.append(engineCommand());
    return commands;
}
