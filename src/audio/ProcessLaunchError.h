#pragma once

#include "platform/UserError.h"

// A child process that could not be started: "Impossible de lancer {name} : {reason}".
class ProcessLaunchError : public UserError {
public:
    using UserError::UserError;
};
