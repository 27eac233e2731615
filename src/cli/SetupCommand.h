#pragma once

#include "Command.h"

// `marlune setup`: the first-run setup pipeline, one "[title] detail" line per step report.
Command setupCommand();
