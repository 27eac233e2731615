#include "GitHubRelease.h"

#include "RequiredJsonField.h"
#include "UpdaterError.h"

#include <QJsonDocument>

GitHubRelease GitHubRelease::fromJson(const QJsonObject& object) {
    GitHubRelease release;
    release.tagName =
        RequiredJsonField::string(object, QStringLiteral("tag_name"), QStringLiteral("tag_name"));
    release.name = RequiredJsonField::string(object, QStringLiteral("name"), QStringLiteral("name"));
    release.body = RequiredJsonField::string(object, QStringLiteral("body"), QStringLiteral("body"));
    release.prerelease =
        RequiredJsonField::boolean(object, QStringLiteral("prerelease"), QStringLiteral("prerelease"));
    release.publishedAt =
        RequiredJsonField::string(object, QStringLiteral("published_at"), QStringLiteral("published_at"));
    const QJsonArray assets =
        RequiredJsonField::array(object, QStringLiteral("assets"), QStringLiteral("assets"));
    for (qsizetype i = 0; i < assets.size(); ++i) {
        const QString where = QStringLiteral("assets[%1]").arg(i);
        if (!assets.at(i).isObject())
            throw UpdaterError(
                RequiredJsonField::failureMessage(QStringLiteral("« %1 » n'est pas un objet").arg(where)));
        release.assets.append(GitHubAsset::fromJson(assets.at(i).toObject(), where));
    }
    return release;
}

GitHubRelease GitHubRelease::decode(const QByteArray& body) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject())
        throw UpdaterError(RequiredJsonField::failureMessage(QStringLiteral("document JSON invalide")));
    const QJsonObject object = document.object();
    try {
        return fromJson(object);
    } catch (const UpdaterError& error) {
        const QJsonValue message = object.value(QStringLiteral("message"));
        if (!message.isString() || message.toString().isEmpty())
            throw;
        throw UpdaterError(
            QStringLiteral("%1 (GitHub : %2)").arg(error.message(), message.toString().left(300)));
    }
}

QJsonObject GitHubRelease::toJson() const {
    QJsonArray assetArray;
    for (const GitHubAsset& asset : assets)
        assetArray.append(asset.toJson());
    return QJsonObject{{QStringLiteral("tag_name"), tagName},
                       {QStringLiteral("name"), name},
                       {QStringLiteral("body"), body},
                       {QStringLiteral("prerelease"), prerelease},
                       {QStringLiteral("published_at"), publishedAt},
                       {QStringLiteral("assets"), assetArray}};
}

QString GitHubRelease::version() const {
    qsizetype start = 0;
    qsizetype end = tagName.size();
    while (start < end && tagName.at(start) == QLatin1Char('v'))
        ++start;
    while (end > start && tagName.at(end - 1) == QLatin1Char('v'))
        --end;
    return tagName.mid(start, end - start);
}
