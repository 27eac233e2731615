#pragma once

#include "audio/StemFile.h"
#include "engine_client/JobStatus.h"
#include "engine_client/SongAnalysis.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <optional>

// One separation job as the engine reports it. Decoding is forgiving: only a missing or non-text
// "job_id" fails the record; every other field falls back to its default.
struct StemJob {
    QString id;
    JobStatus status = JobStatus::queued;
    double progress = 0; // 0–100
    QString stage;
    QList<StemFile> stems;
    std::optional<SongAnalysis> analysis;
    QString title = defaultTitle();
    QDateTime createdAt;
    std::optional<QString> error;
    std::optional<QString> errorDetail;
    bool favorite = false;

    bool operator==(const StemJob&) const = default;

    static QString defaultTitle() { return QStringLiteral("Sans titre"); }

    // `now` is the creation time used when "created_at" is missing or unreadable.
    static std::optional<StemJob> fromJson(const QJsonValue& value,
                                           const QDateTime& now = QDateTime::currentDateTimeUtc());
    static std::optional<StemJob> fromJsonText(const QByteArray& text,
                                               const QDateTime& now = QDateTime::currentDateTimeUtc());
    // None when the text is not an array or any element fails to decode.
    static std::optional<QList<StemJob>>
    listFromJsonText(const QByteArray& text, const QDateTime& now = QDateTime::currentDateTimeUtc());

    // "job_id", "status", "progress", "stage", "title", "created_at" (seconds since 1970), "error" when
    // present, "analysis" when present, "favorite"; compact, in that order.
    QByteArray toJsonText() const;
    static QByteArray listToJsonText(const QList<StemJob>& jobs);

    // "created_at": seconds since 1970, or an internet date-time such as 2023-11-14T22:13:20Z (time-zone
    // designator required, no fractional seconds); none otherwise.
    static std::optional<QDateTime> readCreatedAt(const QJsonValue& value);
};
