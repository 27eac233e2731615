#include "Command.h"

QList<Command> allCommands() {
    QList<Command> commands;
    return commands;
}
