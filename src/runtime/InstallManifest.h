#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QStringList>
#include <optional>

// What is installed for the engine, persisted as components.json. Every field is optional.
struct InstallManifest {
    std::optional<QString> backendTag;
    std::optional<QString> ffmpegVersion;
    std::optional<QString> fpcalcVersion;
    std::optional<QString> qjsVersion;
    std::optional<QString> modelsWarmedTag;
    std::optional<QStringList> modelsFailed;
    std::optional<QStringList> skippedPackages;
    std::optional<QDateTime> lastUpdateCheck;

    // Pretty-printed JSON with sorted keys and ISO 8601 dates; absent fields are left out.
    QByteArray toJson() const;
    // Nothing when the document is not an object or any known key has the wrong type.
    static std::optional<InstallManifest> fromJson(const QByteArray& json);

    bool operator==(const InstallManifest&) const = default;
};
