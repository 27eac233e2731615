#pragma once

#include "Command.h"

// `marlune job ID`: one job of the engine.
Command jobCommand();
