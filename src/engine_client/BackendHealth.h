#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Answer of the engine's health endpoint; "ok" in `status` means ready.
struct BackendHealth {
    QString status;
    std::optional<QString> version;
    std::optional<bool> ffmpegConfigured;
    std::optional<QString> demucsDevice;

    bool operator==(const BackendHealth&) const = default;

    bool isOk() const { return status == QLatin1String("ok"); }

    // None unless the text is an object with a text "status" and the optional members, when present and
    // not null, have their types.
    static std::optional<BackendHealth> fromJsonText(const QByteArray& text);
    // Compact, keys in field order, optional members only when present.
    QByteArray toJsonText() const;
};
