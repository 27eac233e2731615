#pragma once

#include <QJsonValue>
#include <QString>
#include <optional>

// A stem named by an object ({"name": "vocals"}) rather than a bare text.
struct StemRef {
    QString name;

    bool operator==(const StemRef&) const = default;

    static std::optional<StemRef> fromJson(const QJsonValue& value) {
        if (!value.isObject() || !value[QLatin1String("name")].isString())
            return std::nullopt;
        return StemRef{value[QLatin1String("name")].toString()};
    }
};
