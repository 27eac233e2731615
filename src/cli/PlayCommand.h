#pragma once

#include "Command.h"

// `marlune play FILE…`: plays the files together, in sync, from the terminal.
Command playCommand();
