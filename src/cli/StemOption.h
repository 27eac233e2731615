#pragma once

#include "audio/StemKind.h"

#include <QList>
#include <QString>
#include <optional>

// The value of `--stems`: separable kinds by raw value, comma-separated, in the given order, each once.
// None, with a French message in `error`, for an unknown name or an empty list.
std::optional<QList<StemKind>> parseStemOption(const QString& text, QString* error);
