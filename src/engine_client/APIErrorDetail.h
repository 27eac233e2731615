#pragma once

#include "engine_client/AnyCodableString.h"

#include <QByteArray>
#include <optional>

// The engine's error body: {"detail": …}.
struct APIErrorDetail {
    std::optional<AnyCodableString> detail;

    // None when the text is not a JSON object.
    static std::optional<APIErrorDetail> fromJsonText(const QByteArray& text);
};
