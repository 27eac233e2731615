#include "RequiredJsonField.h"

#include "UpdaterError.h"

#include <cmath>

namespace RequiredJsonField {
namespace {

QJsonValue present(const QJsonObject& object, const QString& key, const QString& path) {
    const auto found = object.constFind(key);
    if (found == object.constEnd())
        throw UpdaterError(failureMessage(QStringLiteral("clé « %1 » absente").arg(path)));
    if (found->isNull())
        throw UpdaterError(failureMessage(QStringLiteral("clé « %1 » nulle").arg(path)));
    return *found;
}

[[noreturn]] void wrongType(const QString& path, const QString& expected) {
    throw UpdaterError(failureMessage(QStringLiteral("clé « %1 » : %2").arg(path, expected)));
}

} // namespace

QString failureMessage(const QString& detail) {
    return QStringLiteral("Réponse de GitHub illisible : %1").arg(detail);
}

QString string(const QJsonObject& object, const QString& key, const QString& path) {
    const QJsonValue value = present(object, key, path);
    if (!value.isString())
        wrongType(path, QStringLiteral("texte attendu"));
    return value.toString();
}

bool boolean(const QJsonObject& object, const QString& key, const QString& path) {
    const QJsonValue value = present(object, key, path);
    if (!value.isBool())
        wrongType(path, QStringLiteral("booléen attendu"));
    return value.toBool();
}

qint64 integer(const QJsonObject& object, const QString& key, const QString& path) {
    const QJsonValue value = present(object, key, path);
    // 2^63 is the first double beyond qint64; integral doubles below it convert exactly.
    constexpr double limit = 9223372036854775808.0;
    const double number = value.toDouble();
    if (!value.isDouble() || !std::isfinite(number) || std::floor(number) != number || number >= limit ||
        number < -limit)
        wrongType(path, QStringLiteral("entier attendu"));
    return value.toInteger(static_cast<qint64>(number));
}

QJsonArray array(const QJsonObject& object, const QString& key, const QString& path) {
    const QJsonValue value = present(object, key, path);
    if (!value.isArray())
        wrongType(path, QStringLiteral("liste attendue"));
    return value.toArray();
}

} // namespace RequiredJsonField
