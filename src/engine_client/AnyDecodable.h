#pragma once

#include <QJsonValue>
#include <QString>
#include <optional>

// Any JSON value, kept only when it is a string. Reading it never fails.
struct AnyDecodable {
    std::optional<QString> string;

    static AnyDecodable fromJson(const QJsonValue& json) {
        return {json.isString() ? std::optional<QString>(json.toString()) : std::nullopt};
    }
};
