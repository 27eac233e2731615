#include "ToolSources.h"

#include "SetupError.h"
#include "log/AppLogger.h"

#include <QFile>
#include <QHostAddress>

ToolSources ToolSources::fromEnvironment(const QProcessEnvironment& environment) {
    ToolSources sources;
    sources.addresses = BaseAddresses::fromEnvironment(environment);
    const QString repository = environment.value(QString::fromLatin1(engineRepositoryVariable)).trimmed();
    if (!repository.isEmpty())
        sources.engineRepository = repository;
    const QString trustedPath = environment.value(QString::fromLatin1(trustedTableVariable));
    if (trustedPath.isEmpty())
        return sources;
    QFile file(trustedPath);
    QString error;
    std::optional<FixedDownloads> trusted;
    if (!file.open(QIODevice::ReadOnly))
        error = file.errorString();
    else if (!(trusted = FixedDownloads::fromJson(file.read(4 << 20), &error)))
        error = error.isEmpty() ? QStringLiteral("illisible") : error;
    if (trusted)
        sources.downloads.overrideWith(*trusted);
    else
        AppLogger::shared().log(
            QStringLiteral("Table de sommes de contrôle ignorée (%1) : %2").arg(trustedPath, error),
            LogLevel::warn);
    return sources;
}

FixedDownload ToolSources::pinnedRow(const QString& tool) const {
    const std::optional<FixedDownload> found = row(tool);
    if (!found || !found->isPinned())
        throw SetupError(QStringLiteral("Aucune version vérifiée de %1 pour cette plateforme (%2)")
                             .arg(found ? found->fileName() : tool, platform));
    return *found;
}

QUrl ToolSources::addressOf(const FixedDownload& row, const QString& path) const {
    const QString& base =
        row.host == DownloadHost::ffmpegFallback ? addresses.ffmpegFallback : addresses.githubWeb;
    return BaseAddresses::join(base, path);
}

QString ToolSources::fallbackHost() const {
    return QUrl(addresses.ffmpegFallback).host();
}

QString ToolSources::fallbackName() const {
    QString host = fallbackHost();
    if (!QHostAddress(host).isNull())
        return host;
    if (host.startsWith(QStringLiteral("www.")))
        host = host.mid(4);
    return host.section(QLatin1Char('.'), 0, 0);
}
