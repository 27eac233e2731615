#pragma once

#include "Command.h"

// `marlune submit FILE|ADDRESS`: creates a separation job and prints its identifier.
Command submitCommand();
