#pragma once

#include <QString>
#include <system_error>

// The French reason of a failed file operation: "permission refusée", "disque plein", …
QString fileErrorText(const std::error_code& error);
