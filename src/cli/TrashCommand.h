#pragma once

#include "Command.h"

// `marlune trash ID`: moves a job to the engine's trash.
Command trashCommand();
