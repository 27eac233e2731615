#pragma once

#include "audio/StemKind.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Body of a job created from an address: {"url": …, "stems": [raw values in the caller's order]}.
struct CreateJobRequest {
    QString url;
    QStringList stems;

    static CreateJobRequest from(const QString& url, const QList<StemKind>& kinds);
    QByteArray toJsonText() const;
};
