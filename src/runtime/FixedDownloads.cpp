#include "FixedDownloads.h"

#include "BuiltInToolDownloads.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSysInfo>

namespace {

const QMap<QString, DownloadForm>& formNames() {
    static const QMap<QString, DownloadForm> names{{QStringLiteral("executable"), DownloadForm::executable},
                                                   {QStringLiteral("zip"), DownloadForm::zip},
                                                   {QStringLiteral("tar.gz"), DownloadForm::tarGz}};
    return names;
}

const QMap<QString, DownloadHost>& hostNames() {
    static const QMap<QString, DownloadHost> names{
        {QStringLiteral("github"), DownloadHost::github},
        {QStringLiteral("ffmpegFallback"), DownloadHost::ffmpegFallback}};
    return names;
}

// The text under `key` into `out`; absent leaves `out` as it is, anything but a text fails.
bool readText(const QJsonObject& object, const QString& key, QString& out, QString& error) {
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        return true;
    if (!value.isString()) {
        error = QStringLiteral("« %1 » n'est pas un texte").arg(key);
        return false;
    }
    out = value.toString();
    return true;
}

std::optional<FixedDownload> parseRow(const QJsonValue& value, QString& error) {
    if (!value.isObject()) {
        error = QStringLiteral("une ligne n'est pas un objet");
        return std::nullopt;
    }
    const QJsonObject object = value.toObject();
    FixedDownload row;
    QString host = QStringLiteral("github");
    QString form;
    if (!readText(object, QStringLiteral("tool"), row.tool, error) ||
        !readText(object, QStringLiteral("version"), row.version, error) ||
        !readText(object, QStringLiteral("host"), host, error) ||
        !readText(object, QStringLiteral("path"), row.path, error) ||
        !readText(object, QStringLiteral("versionedPath"), row.versionedPath, error) ||
        !readText(object, QStringLiteral("form"), form, error) ||
        !readText(object, QStringLiteral("sha256"), row.sha256, error))
        return std::nullopt;
    static const QRegularExpression digest(QStringLiteral("^[0-9a-fA-F]{64}$"));
    row.sha256 = row.sha256.toLower();
    if (row.tool.isEmpty())
        error = QStringLiteral("une ligne n'a pas d'outil");
    else if (!row.path.startsWith(QLatin1Char('/')) || row.fileName().isEmpty())
        error = QStringLiteral("chemin invalide pour %1").arg(row.tool);
    else if (!row.versionedPath.isEmpty() && (!row.versionedPath.startsWith(QLatin1Char('/')) ||
                                              !row.versionedPath.contains(QStringLiteral("{version}"))))
        error = QStringLiteral("chemin versionné invalide pour %1").arg(row.tool);
    else if (!hostNames().contains(host))
        error = QStringLiteral("hôte inconnu pour %1 : %2").arg(row.tool, host);
    else if (!formNames().contains(form))
        error = QStringLiteral("forme inconnue pour %1 : %2").arg(row.tool, form);
    else if (!row.sha256.isEmpty() && !digest.match(row.sha256).hasMatch())
        error = QStringLiteral("somme SHA-256 invalide pour %1").arg(row.tool);
    if (!error.isEmpty())
        return std::nullopt;
    row.host = hostNames().value(host);
    row.form = formNames().value(form);
    return row;
}

QJsonObject rowToJson(const FixedDownload& row) {
    QJsonObject object{{QStringLiteral("tool"), row.tool},
                       {QStringLiteral("host"), hostNames().key(row.host)},
                       {QStringLiteral("path"), row.path},
                       {QStringLiteral("form"), formNames().key(row.form)}};
    if (!row.version.isEmpty())
        object.insert(QStringLiteral("version"), row.version);
    if (!row.versionedPath.isEmpty())
        object.insert(QStringLiteral("versionedPath"), row.versionedPath);
    if (row.isFixedVersion() || !row.sha256.isEmpty())
        object.insert(QStringLiteral("sha256"), row.sha256);
    return object;
}

} // namespace

FixedDownloads FixedDownloads::builtIn() {
    static const FixedDownloads table = *fromJson(BuiltInToolDownloads::json());
    return table;
}

std::optional<FixedDownloads> FixedDownloads::fromJson(const QByteArray& json, QString* error) {
    QString reason;
    const auto fail = [&](const QString& why) -> std::optional<FixedDownloads> {
        if (error)
            *error = why;
        return std::nullopt;
    };
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return fail(QStringLiteral("JSON invalide (%1)").arg(parseError.errorString()));
    if (!document.isObject())
        return fail(QStringLiteral("le document n'est pas un objet"));
    FixedDownloads table;
    const QJsonObject platforms = document.object();
    for (auto platform = platforms.begin(); platform != platforms.end(); ++platform) {
        if (!platform->isArray())
            return fail(QStringLiteral("« %1 » n'est pas une liste").arg(platform.key()));
        QList<FixedDownload>& rows = table.m_rows[platform.key()];
        for (const QJsonValue& value : platform->toArray()) {
            const std::optional<FixedDownload> row = parseRow(value, reason);
            if (!row)
                return fail(QStringLiteral("%1 : %2").arg(platform.key(), reason));
            if (table.row(platform.key(), row->tool))
                return fail(QStringLiteral("%1 : %2 figure deux fois").arg(platform.key(), row->tool));
            rows.append(*row);
        }
    }
    return table;
}

QByteArray FixedDownloads::toJson() const {
    QJsonObject document;
    for (auto platform = m_rows.begin(); platform != m_rows.end(); ++platform) {
        QJsonArray rows;
        for (const FixedDownload& row : *platform)
            rows.append(rowToJson(row));
        document.insert(platform.key(), rows);
    }
    return QJsonDocument(document).toJson(QJsonDocument::Indented);
}

QString FixedDownloads::currentPlatform() {
    QString system = QSysInfo::kernelType();
    if (system == QStringLiteral("darwin"))
        system = QStringLiteral("macos");
    return system + QLatin1Char('-') + QSysInfo::currentCpuArchitecture();
}

QString FixedDownloads::architectureOf(const QString& platform) {
    return platform.section(QLatin1Char('-'), 1);
}

std::optional<FixedDownload> FixedDownloads::row(const QString& platform, const QString& tool) const {
    for (const FixedDownload& candidate : m_rows.value(platform))
        if (candidate.tool == tool)
            return candidate;
    return std::nullopt;
}

QString FixedDownloads::versionOf(const QString& tool) const {
    for (const QList<FixedDownload>& rows : m_rows)
        for (const FixedDownload& candidate : rows)
            if (candidate.tool == tool && !candidate.version.isEmpty())
                return candidate.version;
    return QString();
}

void FixedDownloads::put(const QString& platform, const FixedDownload& row) {
    QList<FixedDownload>& rows = m_rows[platform];
    const auto same =
        std::find_if(rows.begin(), rows.end(), [&](const FixedDownload& r) { return r.tool == row.tool; });
    if (same != rows.end())
        *same = row;
    else
        rows.append(row);
}

void FixedDownloads::overrideWith(const FixedDownloads& trusted) {
    for (auto platform = trusted.m_rows.begin(); platform != trusted.m_rows.end(); ++platform)
        for (const FixedDownload& row : *platform)
            put(platform.key(), row);
}
