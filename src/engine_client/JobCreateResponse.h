#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Answer to a job creation: {"job_id": …}.
struct JobCreateResponse {
    QString jobId;

    static std::optional<JobCreateResponse> fromJsonText(const QByteArray& text);
};
