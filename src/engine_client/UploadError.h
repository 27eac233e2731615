#pragma once

#include "platform/UserError.h"

// The file to upload could not be read, or its upload body could not be written.
class UploadError : public UserError {
public:
    using UserError::UserError;
};
