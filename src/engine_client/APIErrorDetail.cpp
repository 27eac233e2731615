#include "engine_client/APIErrorDetail.h"

#include "engine_client/JsonRead.h"

#include <QJsonDocument>
#include <QJsonObject>

std::optional<APIErrorDetail> APIErrorDetail::fromJsonText(const QByteArray& text) {
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (!document.isObject())
        return std::nullopt;
    const QJsonValue detail = document.object().value(QLatin1String("detail"));
    if (JsonRead::isAbsent(detail))
        return APIErrorDetail{};
    return APIErrorDetail{AnyCodableString::fromJson(detail)};
}
