#pragma once

#include "platform/UserError.h"

// The runtime's error: one French message shown as it stands.
class SetupError : public UserError {
public:
    using UserError::UserError;
};
