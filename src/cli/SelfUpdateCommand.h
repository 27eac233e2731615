#pragma once

#include "Command.h"

// `marlune self-update [--check]`: looks for a newer release of Marlune and, unless --check, installs it
// in place of the running AppImage.
Command selfUpdateCommand();
