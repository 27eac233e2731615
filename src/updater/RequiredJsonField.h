#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// Strict reads of the required keys of a GitHub document. Each throws UpdaterError naming `path`
// (the key with its place, e.g. "assets[1].size") when the key is missing, null or of another type.
namespace RequiredJsonField {
QString string(const QJsonObject& object, const QString& key, const QString& path);
bool boolean(const QJsonObject& object, const QString& key, const QString& path);
qint64 integer(const QJsonObject& object, const QString& key, const QString& path);
QJsonArray array(const QJsonObject& object, const QString& key, const QString& path);
// The message every decoding failure carries: "Réponse de GitHub illisible : {detail}"
QString failureMessage(const QString& detail);
} // namespace RequiredJsonField
