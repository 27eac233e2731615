#pragma once

#include <QStringList>
#include <QUrl>
#include <optional>

// The engine's base address of a subcommand: `--engine-url URL` (taken out of `arguments`), else
// MARLUNE_ENGINE_URL, else http://127.0.0.1:8000/. None, with a French message, when the text is no address.
std::optional<QUrl> takeEngineAddress(QStringList& arguments, QString* error);
