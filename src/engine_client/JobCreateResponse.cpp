#include "engine_client/JobCreateResponse.h"

#include <QJsonDocument>
#include <QJsonObject>

std::optional<JobCreateResponse> JobCreateResponse::fromJsonText(const QByteArray& text) {
    const QJsonDocument document = QJsonDocument::fromJson(text);
    const QJsonValue id = document.object().value(QLatin1String("job_id"));
    if (!id.isString())
        return std::nullopt;
    return JobCreateResponse{id.toString()};
}
