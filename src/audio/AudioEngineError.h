#pragma once

#include "platform/UserError.h"

// The audio output could not be opened or started; the message says why, in French.
class AudioEngineError : public UserError {
public:
    using UserError::UserError;
};
