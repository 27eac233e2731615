#include "Command.h"
#include "ConvertCommand.h"
#include "DiagnoseCommand.h"
#include "EngineCommand.h"
#include "PlayCommand.h"
#include "SelfUpdateCommand.h"
#include "SeparateCommand.h"
#include "WaveformCommand.h"

QList<Command> allCommands() {
    QList<Command> commands;
    commands.append(separateCommand());
    commands.append(engineCommand());
    commands.append(diagnoseCommand());
    commands.append(selfUpdateCommand());
    commands.append(convertCommand());
    commands.append(waveformCommand());
    commands.append(playCommand());
    return commands;
}
