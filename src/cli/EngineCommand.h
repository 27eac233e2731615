#pragma once

#include "Command.h"

// `marlune engine install-reference|start|stop|status`: the local engine's install and supervision.
Command engineCommand();
