#include "engine_client/BackendHealth.h"

#include "engine_client/JsonObjectWriter.h"
#include "engine_client/JsonRead.h"

#include <QJsonDocument>
#include <QJsonObject>

std::optional<BackendHealth> BackendHealth::fromJsonText(const QByteArray& text) {
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();
    BackendHealth health;
    const std::optional<QString> status = JsonRead::text(object.value(QLatin1String("status")));
    if (!status)
        return std::nullopt;
    health.status = *status;
    const bool readable =
        JsonRead::optionalMember(object, QLatin1String("version"), health.version, JsonRead::text) &&
        JsonRead::optionalMember(object, QLatin1String("ffmpeg_configured"), health.ffmpegConfigured,
                                 JsonRead::boolean) &&
        JsonRead::optionalMember(object, QLatin1String("demucs_device"), health.demucsDevice, JsonRead::text);
    if (!readable)
        return std::nullopt;
    return health;
}

QByteArray BackendHealth::toJsonText() const {
    JsonObjectWriter writer;
    writer.string(QLatin1String("status"), status);
    if (version)
        writer.string(QLatin1String("version"), *version);
    if (ffmpegConfigured)
        writer.boolean(QLatin1String("ffmpeg_configured"), *ffmpegConfigured);
    if (demucsDevice)
        writer.string(QLatin1String("demucs_device"), *demucsDevice);
    return writer.finish();
}
