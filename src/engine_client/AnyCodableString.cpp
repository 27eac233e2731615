#include "engine_client/AnyCodableString.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>

AnyCodableString AnyCodableString::fromJson(const QJsonValue& json) {
    if (json.isString())
        return {json.toString()};
    if (json.isArray()) {
        const QJsonArray items = json.toArray();
        const bool allObjects =
            std::all_of(items.begin(), items.end(), [](const QJsonValue& item) { return item.isObject(); });
        if (allObjects) {
            QStringList messages;
            for (const QJsonValue& item : items) {
                const QJsonValue message = item.toObject().value(QLatin1String("msg"));
                if (message.isString())
                    messages.append(message.toString());
            }
            return {messages.join(QLatin1String("; "))};
        }
    }
    return {QStringLiteral("Erreur inconnue")};
}
