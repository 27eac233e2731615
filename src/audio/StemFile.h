#pragma once

#include "audio/StemKind.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QUrl>
#include <optional>

// One stem file of a job.
struct StemFile {
    QString id; // "{jobId}-{raw value of kind}"
    StemKind kind = StemKind::vocals;
    QString fileName; // "{raw value of kind}.wav"
    std::optional<double> durationSeconds;
    std::optional<QUrl> localURL; // where the downloaded file lies; never encoded

    bool operator==(const StemFile&) const = default;

    // The stem of `kind` in job `jobId`, named as the engine names its files.
    static StemFile forJob(const QString& jobId, StemKind kind);

    // Keys "id", "kind", "file_name", then "duration" only when known.
    QJsonObject toJson() const;
    // None when "id", "kind" or "file_name" is missing or unreadable, the kind is not a raw value of
    // StemKind, or "duration" is present, not null and not a number. The result has no local URL.
    static std::optional<StemFile> fromJson(const QJsonValue& value);
};
