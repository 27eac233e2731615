#pragma once

#include <QMetaType>
#include <QString>
#include <QUuid>
#include <optional>

// The outcome of converting one file.
struct ConvertResult {
    QUuid id = QUuid::createUuid(); // fresh for every result
    QString fileName;               // the source's name (last path component)
    bool success = false;
    std::optional<QString> destURL; // the written file, on success
    std::optional<QString> error;   // the failure's message

    bool operator==(const ConvertResult&) const = default;
};

Q_DECLARE_METATYPE(ConvertResult)
