#pragma once

#include "Command.h"

// `marlune diagnose [--engine-test]`: the diagnostic report, printed line by line as it is written.
Command diagnoseCommand();
