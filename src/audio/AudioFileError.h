#pragma once

#include "platform/UserError.h"

// An audio file that cannot be opened or read; the message says why, in French.
class AudioFileError : public UserError {
public:
    using UserError::UserError;
};
