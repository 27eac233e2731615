#pragma once

#include "Command.h"

// `marlune components [--offline]`: the nine components with their installed and latest versions.
Command componentsCommand();
