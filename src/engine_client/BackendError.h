#pragma once

#include "platform/UserError.h"

// A failed engine call, with the engine's own message or "HTTP {code}".
class BackendError : public UserError {
public:
    using UserError::UserError;
};
