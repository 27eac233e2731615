#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <optional>

// Typed reads of one JSON value: none when the value has another type (or is missing or null).
namespace JsonRead {
inline bool isAbsent(const QJsonValue& value) {
    return value.isUndefined() || value.isNull();
}

inline std::optional<double> number(const QJsonValue& value) {
    return value.isDouble() ? std::optional<double>(value.toDouble()) : std::nullopt;
}

inline std::optional<QString> text(const QJsonValue& value) {
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

inline std::optional<bool> boolean(const QJsonValue& value) {
    return value.isBool() ? std::optional<bool>(value.toBool()) : std::nullopt;
}

// A member that may be missing or null, but has its type when present: false when it has another type,
// otherwise stores it (or nothing) in `field`.
template <typename T, typename Reader>
bool optionalMember(const QJsonObject& object, QLatin1String key, std::optional<T>& field, Reader read) {
    const QJsonValue value = object.value(key);
    if (isAbsent(value))
        return true;
    field = read(value);
    return field.has_value();
}
} // namespace JsonRead
