#include "engine_client/JobStatus.h"

#include <array>

namespace {
struct StatusTexts {
    const char* raw;
    const char* label;
};

constexpr std::array<StatusTexts, 10> kTexts{{
    {"queued", "En file d'attente…"},
    {"downloading", "Téléchargement…"},
    {"analyzing", "Analyse…"},
    {"separating", "Séparation des pistes…"},
    {"processing", "Finalisation…"},
    {"done", "Terminé"},
    {"error", "Échec"},
    {"cancelled", "Annulé"},
    {"stopped", "Arrêté"},
    {"unknown", "Traitement…"},
}};

const StatusTexts& textsOf(JobStatus status) {
    return kTexts[static_cast<size_t>(status)];
}
} // namespace

namespace JobStatuses {
QList<JobStatus> all() {
    QList<JobStatus> statuses;
    for (size_t i = 0; i < kTexts.size(); ++i)
        statuses.append(static_cast<JobStatus>(i));
    return statuses;
}

QString rawValue(JobStatus status) {
    return QString::fromLatin1(textsOf(status).raw);
}

QString statusLabel(JobStatus status) {
    return QString::fromUtf8(textsOf(status).label);
}

bool isFinal(JobStatus status) {
    return status == JobStatus::done || status == JobStatus::error || status == JobStatus::cancelled ||
           status == JobStatus::stopped;
}

JobStatus fromWord(const QString& word) {
    if (word == QLatin1String("pending"))
        return JobStatus::queued;
    if (word == QLatin1String("uploading"))
        return JobStatus::downloading;
    if (word == QLatin1String("mixing"))
        return JobStatus::processing;
    if (word == QLatin1String("failed"))
        return JobStatus::error;
    for (size_t i = 0; i < kTexts.size(); ++i) {
        if (word == QLatin1String(kTexts[i].raw))
            return static_cast<JobStatus>(i);
    }
    return JobStatus::unknown;
}

std::optional<JobStatus> decode(const QJsonValue& value) {
    if (!value.isString())
        return std::nullopt;
    return fromWord(value.toString());
}
} // namespace JobStatuses
