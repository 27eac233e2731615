#include "audio/StemFile.h"

StemFile StemFile::forJob(const QString& jobId, StemKind kind) {
    const QString raw = StemKinds::rawValue(kind);
    return StemFile{jobId + QLatin1Char('-') + raw, kind, raw + QLatin1String(".wav"), std::nullopt,
                    std::nullopt};
}

QJsonObject StemFile::toJson() const {
    QJsonObject object{{QStringLiteral("id"), id},
                       {QStringLiteral("kind"), StemKinds::rawValue(kind)},
                       {QStringLiteral("file_name"), fileName}};
    if (durationSeconds)
        object.insert(QStringLiteral("duration"), *durationSeconds);
    return object;
}

std::optional<StemFile> StemFile::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const QJsonValue id = object.value(QLatin1String("id"));
    const QJsonValue kind = object.value(QLatin1String("kind"));
    const QJsonValue fileName = object.value(QLatin1String("file_name"));
    const QJsonValue duration = object.value(QLatin1String("duration"));
    if (!id.isString() || !kind.isString() || !fileName.isString())
        return std::nullopt;
    const std::optional<StemKind> stemKind = StemKinds::fromRawValue(kind.toString());
    if (!stemKind)
        return std::nullopt;
    StemFile file{id.toString(), *stemKind, fileName.toString(), std::nullopt, std::nullopt};
    if (duration.isDouble())
        file.durationSeconds = duration.toDouble();
    else if (!duration.isUndefined() && !duration.isNull())
        return std::nullopt;
    return file;
}
