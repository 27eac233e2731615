#pragma once

#include "Command.h"

// `marlune cancel ID` and `marlune trash ID`: one action on one job, nothing printed on success.
Command cancelCommand();
Command trashCommand();
