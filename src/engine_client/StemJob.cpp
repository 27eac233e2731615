#include "engine_client/StemJob.h"

#include "engine_client/JsonObjectWriter.h"
#include "engine_client/JsonRead.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <cmath>

namespace {
// About ±270,000 years: beyond that a number is not a date.
constexpr double kLargestSeconds = 8.5e12;

QList<StemFile> readStems(const QJsonValue& value, const QString& jobId) {
    if (!value.isArray())
        return {};
    const QJsonArray names = value.toArray();
    for (const QJsonValue& name : names) {
        if (!name.isString())
            return {};
    }
    QList<StemFile> stems;
    for (const QJsonValue& name : names) {
        if (const std::optional<StemKind> kind = StemKinds::fromRawValue(name.toString()))
            stems.append(StemFile::forJob(jobId, *kind));
    }
    return stems;
}

std::optional<SongAnalysis> readAnalysis(const QJsonObject& object) {
    const QJsonValue nested = object.value(QLatin1String("analysis"));
    if (!JsonRead::isAbsent(nested)) {
        if (std::optional<SongAnalysis> analysis = SongAnalysis::fromJson(nested))
            return analysis;
    }
    SongAnalysis flat;
    flat.bpm = JsonRead::number(object.value(QLatin1String("bpm")));
    flat.key = JsonRead::text(object.value(QLatin1String("key")));
    flat.scale = JsonRead::text(object.value(QLatin1String("scale")));
    flat.keyConfidence = JsonRead::number(object.value(QLatin1String("key_confidence")));
    flat.integratedLufs = JsonRead::number(object.value(QLatin1String("lufs")));
    flat.samplePeakDb = JsonRead::number(object.value(QLatin1String("peak_db")));
    if (!flat.bpm && !flat.key && !flat.integratedLufs)
        return std::nullopt;
    return flat;
}
} // namespace

std::optional<QDateTime> StemJob::readCreatedAt(const QJsonValue& value) {
    if (const std::optional<double> seconds = JsonRead::number(value)) {
        if (std::fabs(*seconds) < kLargestSeconds)
            return QDateTime::fromMSecsSinceEpoch(std::llround(*seconds * 1000.0), Qt::UTC);
    }
    const std::optional<QString> text = JsonRead::text(value);
    if (!text)
        return std::nullopt;
    static const QRegularExpression internetDateTime(
        QStringLiteral("^\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}(Z|[+-]\\d{2}:\\d{2})$"));
    if (!internetDateTime.match(*text).hasMatch())
        return std::nullopt;
    const QDateTime parsed = QDateTime::fromString(*text, Qt::ISODate);
    if (!parsed.isValid())
        return std::nullopt;
    return parsed.toUTC();
}

std::optional<StemJob> StemJob::fromJson(const QJsonValue& value, const QDateTime& now) {
    if (!value.isObject())
        return std::nullopt;
    const QJsonObject object = value.toObject();
    const std::optional<QString> id = JsonRead::text(object.value(QLatin1String("job_id")));
    if (!id)
        return std::nullopt;
    StemJob job;
    job.id = *id;
    job.status = JobStatuses::decode(object.value(QLatin1String("status"))).value_or(JobStatus::queued);
    job.progress = JsonRead::number(object.value(QLatin1String("progress"))).value_or(0.0);
    job.stage = JsonRead::text(object.value(QLatin1String("stage"))).value_or(QString());
    job.title = JsonRead::text(object.value(QLatin1String("title"))).value_or(defaultTitle());
    job.error = JsonRead::text(object.value(QLatin1String("error")));
    job.errorDetail = JsonRead::text(object.value(QLatin1String("error_detail")));
    job.favorite = JsonRead::boolean(object.value(QLatin1String("favorite"))).value_or(false);
    job.createdAt = readCreatedAt(object.value(QLatin1String("created_at"))).value_or(now);
    job.stems = readStems(object.value(QLatin1String("stems")), job.id);
    job.analysis = readAnalysis(object);
    return job;
}

std::optional<StemJob> StemJob::fromJsonText(const QByteArray& text, const QDateTime& now) {
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (!document.isObject())
        return std::nullopt;
    return fromJson(document.object(), now);
}

std::optional<QList<StemJob>> StemJob::listFromJsonText(const QByteArray& text, const QDateTime& now) {
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (!document.isArray())
        return std::nullopt;
    const QJsonArray array = document.array();
    QList<StemJob> jobs;
    jobs.reserve(array.size());
    for (const QJsonValue& element : array) {
        std::optional<StemJob> job = fromJson(element, now);
        if (!job)
            return std::nullopt;
        jobs.append(std::move(*job));
    }
    return jobs;
}

QByteArray StemJob::toJsonText() const {
    JsonObjectWriter writer;
    writer.string(QLatin1String("job_id"), id)
        .string(QLatin1String("status"), JobStatuses::rawValue(status))
        .number(QLatin1String("progress"), progress)
        .string(QLatin1String("stage"), stage)
        .string(QLatin1String("title"), title)
        .number(QLatin1String("created_at"), double(createdAt.toMSecsSinceEpoch()) / 1000.0);
    if (error)
        writer.string(QLatin1String("error"), *error);
    if (analysis)
        writer.raw(QLatin1String("analysis"), analysis->toJsonText());
    writer.boolean(QLatin1String("favorite"), favorite);
    return writer.finish();
}

QByteArray StemJob::listToJsonText(const QList<StemJob>& jobs) {
    QByteArray text = "[";
    for (const StemJob& job : jobs) {
        if (text.size() > 1)
            text += ',';
        text += job.toJsonText();
    }
    return text + ']';
}
