#pragma once

#include "SetupError.h"

// The user dismissed the administrator password dialog.
class AdminCommandCancelled : public SetupError {
public:
    using SetupError::SetupError;
};
