#pragma once

#include "Command.h"

// `marlune download ID KIND`: a stem of a finished job in the stem cache.
Command downloadCommand();
