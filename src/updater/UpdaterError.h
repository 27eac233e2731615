#pragma once

#include "platform/UserError.h"

// A failure of the self-updater, with its French message.
class UpdaterError : public UserError {
public:
    using UserError::UserError;
};
