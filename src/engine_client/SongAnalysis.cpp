#include "engine_client/SongAnalysis.h"

#include "engine_client/JsonObjectWriter.h"
#include "engine_client/JsonRead.h"

#include <QJsonObject>

std::optional<SongAnalysis> SongAnalysis::fromJson(const QJsonValue& value) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    SongAnalysis analysis;
    const bool readable =
        JsonRead::optionalMember(object, QLatin1String("bpm"), analysis.bpm, JsonRead::number) &&
        JsonRead::optionalMember(object, QLatin1String("key"), analysis.key, JsonRead::text) &&
        JsonRead::optionalMember(object, QLatin1String("scale"), analysis.scale, JsonRead::text) &&
        JsonRead::optionalMember(object, QLatin1String("key_confidence"), analysis.keyConfidence,
                                 JsonRead::number) &&
        JsonRead::optionalMember(object, QLatin1String("integrated_lufs"), analysis.integratedLufs,
                                 JsonRead::number) &&
        JsonRead::optionalMember(object, QLatin1String("sample_peak_db"), analysis.samplePeakDb,
                                 JsonRead::number);
    if (!readable)
        return std::nullopt;
    return analysis;
}

QByteArray SongAnalysis::toJsonText() const {
    JsonObjectWriter writer;
    if (bpm)
        writer.number(QLatin1String("bpm"), *bpm);
    if (key)
        writer.string(QLatin1String("key"), *key);
    if (scale)
        writer.string(QLatin1String("scale"), *scale);
    if (keyConfidence)
        writer.number(QLatin1String("key_confidence"), *keyConfidence);
    if (integratedLufs)
        writer.number(QLatin1String("integrated_lufs"), *integratedLufs);
    if (samplePeakDb)
        writer.number(QLatin1String("sample_peak_db"), *samplePeakDb);
    return writer.finish();
}
