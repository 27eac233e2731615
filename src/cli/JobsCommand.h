#pragma once

#include "Command.h"

// `marlune jobs`: the engine's jobs, newest first.
Command jobsCommand();
