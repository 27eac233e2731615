#pragma once

#include <QJsonValue>
#include <QString>

// A text read from any JSON value: a string as it stands, a request-validation list as its "msg" texts
// joined with "; ", anything else as "Erreur inconnue".
struct AnyCodableString {
    QString value;

    static AnyCodableString fromJson(const QJsonValue& json);
};
