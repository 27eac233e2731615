#pragma once

#include "platform/UserError.h"

// An engine answer that could not be read as the record it should hold.
class DecodingError : public UserError {
public:
    using UserError::UserError;
};
