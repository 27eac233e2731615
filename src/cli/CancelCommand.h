#pragma once

#include "Command.h"

// `marlune cancel ID`: cancels a job.
Command cancelCommand();
