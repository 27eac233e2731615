#include "ToolDownloader.h"

#include "SetupError.h"
#include "TemporaryPaths.h"
#include "platform/TransferLength.h"

#include <QCoro/QCoroNetworkReply>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <memory>

namespace ToolDownloader {

QCoro::Task<QString> download(QUrl address, QString folder) {
    const QString file = address.path().section(QLatin1Char('/'), -1);
    TemporaryPaths partial;
    QFile output(partial.add(TemporaryPaths::uniqueName(folder, QStringLiteral(".part"))));
    if (!output.open(QIODevice::WriteOnly))
        throw SetupError(
            QStringLiteral("Impossible d'écrire dans %1 : %2").arg(folder, output.errorString()));

    QNetworkRequest request(address);
    request.setTransferTimeout(timeoutMs);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Marlune"));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkAccessManager network;
    std::unique_ptr<QNetworkReply> reply(network.get(request));
    const TransferLength length(reply.get());
    bool writeFailed = false;
    const auto drain = [&] {
        const QByteArray data = reply->readAll();
        if (!writeFailed && output.write(data) != data.size())
            writeFailed = true;
    };
    QObject::connect(reply.get(), &QNetworkReply::readyRead, reply.get(), drain);
    QNetworkReply* transfer = reply.get();
    co_await transfer;
    drain();

    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status >= 400)
        throw SetupError(QStringLiteral("HTTP %1 pour %2").arg(status).arg(file));
    if (reply->error() != QNetworkReply::NoError)
        throw SetupError(reply->errorString());
    if (writeFailed || !output.flush())
        throw SetupError(
            QStringLiteral("Impossible d'écrire dans %1 : %2").arg(folder, output.errorString()));
    output.close();
    if (length.differsFromAnnounced(output.size()))
        throw SetupError(QStringLiteral("Téléchargement interrompu : %1").arg(file));

    const QString downloaded = TemporaryPaths::uniqueName(folder, QLatin1Char('-') + file);
    if (!QFile::rename(output.fileName(), downloaded))
        throw SetupError(QStringLiteral("Impossible d'écrire dans %1").arg(folder));
    co_return downloaded;
}

} // namespace ToolDownloader
