#pragma once

#include <QJsonValue>
#include <QList>
#include <QString>
#include <optional>

// The state of a job, in the engine's order.
enum class JobStatus {
    queued,
    downloading,
    analyzing,
    separating,
    processing,
    done,
    error,
    cancelled,
    stopped,
    unknown
};

namespace JobStatuses {
QList<JobStatus> all();
QString rawValue(JobStatus status);
// The progress text shown for the status, e.g. "Séparation des pistes…".
QString statusLabel(JobStatus status);
// done, error, cancelled and stopped end a job.
bool isFinal(JobStatus status);
// The engine's word, with its aliases ("pending", "uploading", "mixing", "failed"); an unknown word is
// `unknown`. None when the value is not a string.
std::optional<JobStatus> decode(const QJsonValue& value);
JobStatus fromWord(const QString& word);
} // namespace JobStatuses
