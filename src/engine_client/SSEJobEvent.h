#pragma once

#include "engine_client/StemJob.h"

// One event of a job's stream: the job's complete current state.
struct SSEJobEvent {
    StemJob job;
};
