#pragma once

#include <QJsonObject>
#include <QString>
#include <optional>

// One downloadable file of a release, as the GitHub release API lists it.
struct GitHubAsset {
    QString name;                  // "name"
    QString browserDownloadURL;    // "browser_download_url"
    qint64 size = 0;               // "size", in bytes
    std::optional<QString> digest; // "digest", e.g. "sha256:…"; optional, null when GitHub has none

    // The three first keys are required; throws UpdaterError naming the faulty key, prefixed by `where`.
    static GitHubAsset fromJson(const QJsonObject& object, const QString& where = QString());
    QJsonObject toJson() const;

    bool operator==(const GitHubAsset&) const = default;
};
