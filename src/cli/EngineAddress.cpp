#include "EngineAddress.h"

#include "engine_client/BackendService.h"

std::optional<QUrl> takeEngineAddress(QStringList& arguments, QString* error) {
    QUrl address = BackendService::defaultConfig().baseURL;
    const qsizetype at = arguments.indexOf(QStringLiteral("--engine-url"));
    if (at >= 0) {
        if (at + 1 >= arguments.size()) {
            *error = QStringLiteral("--engine-url attend une adresse.");
            return std::nullopt;
        }
        address = QUrl(arguments.at(at + 1));
        arguments.remove(at, 2);
    }
    if (!address.isValid() || address.scheme().isEmpty() || address.host().isEmpty()) {
        *error = QStringLiteral("Adresse du moteur invalide : %1").arg(address.toString());
        return std::nullopt;
    }
    if (!address.path().endsWith(QLatin1Char('/')))
        address.setPath(address.path() + QLatin1Char('/'));
    return address;
}
