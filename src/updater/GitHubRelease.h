#pragma once

#include "GitHubAsset.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QString>

// A release of the application's repository, decoded from the GitHub release API.
struct GitHubRelease {
    QString tagName;           // "tag_name"
    QString name;              // "name"
    QString body;              // "body", the release notes
    bool prerelease = false;   // "prerelease"
    QString publishedAt;       // "published_at", as received
    QList<GitHubAsset> assets; // "assets"

    // All six keys are required and none may be null; throws UpdaterError otherwise.
    static GitHubRelease fromJson(const QJsonObject& object);
    // Decodes a whole response body; a GitHub error document fails with GitHub's own message appended.
    static GitHubRelease decode(const QByteArray& body);
    QJsonObject toJson() const;

    // The tag with every "v" removed from both ends: "v1.4.0" gives "1.4.0".
    QString version() const;

    bool operator==(const GitHubRelease&) const = default;
};

Q_DECLARE_METATYPE(GitHubRelease)
