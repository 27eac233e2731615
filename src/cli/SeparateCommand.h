#pragma once

#include "Command.h"

// `marlune separate INPUT …`: the window's job flow from a file or an address to exported stems.
Command separateCommand();
