#pragma once

#include "Command.h"

// `marlune follow ID`: a job's events as they arrive, until its end.
// Exit codes of `follow` besides success (done) and failure (error).
namespace FollowExitCode {
constexpr int cancelled = 3;  // cancelled or stopped
constexpr int unfinished = 4; // the stream ended without a final status
} // namespace FollowExitCode

Command followCommand();
