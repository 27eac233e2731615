#include "GitHubAsset.h"

#include "RequiredJsonField.h"

namespace {
QString keyPath(const QString& where, const char* key) {
    return where.isEmpty() ? QString::fromLatin1(key) : where + QLatin1Char('.') + QLatin1String(key);
}
} // namespace

GitHubAsset GitHubAsset::fromJson(const QJsonObject& object, const QString& where) {
    GitHubAsset asset;
    asset.name = RequiredJsonField::string(object, QStringLiteral("name"), keyPath(where, "name"));
    asset.browserDownloadURL = RequiredJsonField::string(object, QStringLiteral("browser_download_url"),
                                                         keyPath(where, "browser_download_url"));
    asset.size = RequiredJsonField::integer(object, QStringLiteral("size"), keyPath(where, "size"));
    const QJsonValue digest = object.value(QStringLiteral("digest"));
    if (digest.isString())
        asset.digest = digest.toString();
    return asset;
}

QJsonObject GitHubAsset::toJson() const {
    QJsonObject object{{QStringLiteral("name"), name},
                       {QStringLiteral("browser_download_url"), browserDownloadURL},
                       {QStringLiteral("size"), size}};
    if (digest)
        object.insert(QStringLiteral("digest"), *digest);
    return object;
}
