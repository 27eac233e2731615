#include "InstallManifest.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// Reads one optional key; false when it is present with the wrong type.
bool readText(const QJsonObject& object, const char* key, std::optional<QString>& field) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isString())
        return false;
    field = value.toString();
    return true;
}

bool readTextList(const QJsonObject& object, const char* key, std::optional<QStringList>& field) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isArray())
        return false;
    QStringList list;
    for (const QJsonValue& item : value.toArray()) {
        if (!item.isString())
            return false;
        list.append(item.toString());
    }
    field = list;
    return true;
}

bool readDate(const QJsonObject& object, const char* key, std::optional<QDateTime>& field) {
    std::optional<QString> text;
    if (!readText(object, key, text))
        return false;
    if (!text)
        return true;
    const QDateTime date = QDateTime::fromString(*text, Qt::ISODateWithMs);
    if (!date.isValid())
        return false;
    field = date;
    return true;
}

void writeText(QJsonObject& object, const char* key, const std::optional<QString>& field) {
    if (field)
        object.insert(QLatin1String(key), *field);
}

void writeTextList(QJsonObject& object, const char* key, const std::optional<QStringList>& field) {
    if (field)
        object.insert(QLatin1String(key), QJsonArray::fromStringList(*field));
}

} // namespace

QByteArray InstallManifest::toJson() const {
    QJsonObject object; // keys come out sorted
    writeText(object, "backendTag", backendTag);
    writeText(object, "ffmpegVersion", ffmpegVersion);
    writeText(object, "fpcalcVersion", fpcalcVersion);
    writeText(object, "qjsVersion", qjsVersion);
    writeText(object, "modelsWarmedTag", modelsWarmedTag);
    writeTextList(object, "modelsFailed", modelsFailed);
    writeTextList(object, "skippedPackages", skippedPackages);
    if (lastUpdateCheck)
        object.insert(QLatin1String("lastUpdateCheck"), lastUpdateCheck->toUTC().toString(Qt::ISODate));
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

std::optional<InstallManifest> InstallManifest::fromJson(const QByteArray& json) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    InstallManifest manifest;
    const bool ok = readText(object, "backendTag", manifest.backendTag) &&
                    readText(object, "ffmpegVersion", manifest.ffmpegVersion) &&
                    readText(object, "fpcalcVersion", manifest.fpcalcVersion) &&
                    readText(object, "qjsVersion", manifest.qjsVersion) &&
                    readText(object, "modelsWarmedTag", manifest.modelsWarmedTag) &&
                    readTextList(object, "modelsFailed", manifest.modelsFailed) &&
                    readTextList(object, "skippedPackages", manifest.skippedPackages) &&
                    readDate(object, "lastUpdateCheck", manifest.lastUpdateCheck);
    if (!ok)
        return std::nullopt;
    return manifest;
}
