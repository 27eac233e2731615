#include "Command.h"
#include "ComponentsCommand.h"
#include "ConvertCommand.h"
#include "DiagnoseCommand.h"
#include "DownloadCommand.h"
#include "EngineCommand.h"
#include "FollowCommand.h"
#include "HealthCommand.h"
#include "JobActionCommands.h"
#include "JobCommand.h"
#include "JobsCommand.h"
#include "PlayCommand.h"
#include "SelfUpdateCommand.h"
#include "SeparateCommand.h"
#include "SetupCommand.h"
#include "SubmitCommand.h"
#include "UpdateCommand.h"
#include "WaveformCommand.h"

QList<Command> allCommands() {
    QList<Command> commands;
    commands.append(separateCommand());
    commands.append(healthCommand());
    commands.append(jobsCommand());
    commands.append(jobCommand());
    commands.append(followCommand());
    commands.append(submitCommand());
    commands.append(cancelCommand());
    commands.append(trashCommand());
    commands.append(downloadCommand());
    commands.append(engineCommand());
    commands.append(setupCommand());
    commands.append(componentsCommand());
    commands.append(updateCommand());
    commands.append(diagnoseCommand());
    commands.append(selfUpdateCommand());
    commands.append(convertCommand());
    commands.append(waveformCommand());
    commands.append(playCommand());
    return commands;
}
