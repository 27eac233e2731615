#pragma once

#include "Command.h"

// `marlune update`: brings every component up to date, one line per step.
Command updateCommand();
