#include "FileDownload.h"

#include "FileErrorText.h"
#include "NetworkErrorText.h"
#include "UpdaterError.h"
#include "platform/TransferLength.h"

#include <QCoro/QCoroNetworkReply>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTemporaryFile>
#include <cerrno>
#include <memory>

namespace {

constexpr int kIdleTimeoutMs = 60000;

struct ReplyDeleter {
    void operator()(QNetworkReply* reply) const {
        reply->disconnect();
        reply->deleteLater();
    }
};

QString writeFailure(const QString& path, int error) {
    return QStringLiteral("Impossible d'écrire « %1 » (%2)")
        .arg(path, fileErrorText(std::error_code(error, std::generic_category())));
}

} // namespace

QCoro::Task<QString> downloadToFile(QNetworkAccessManager& network, QUrl url, QString folder,
                                    std::function<void(qint64 received, qint64 total)> onProgress) {
    QTemporaryFile file(folder + QStringLiteral("/marlune-update-XXXXXX.part"));
    errno = 0;
    if (!file.open())
        throw UpdaterError(writeFailure(file.fileTemplate(), errno));

    QNetworkRequest request(url);
    request.setTransferTimeout(kIdleTimeoutMs);
    std::unique_ptr<QNetworkReply, ReplyDeleter> reply(network.get(request));
    const TransferLength length(reply.get());
    int writeError = 0;
    const auto drain = [&] {
        const QByteArray data = reply->readAll();
        errno = 0;
        if (writeError == 0 && !data.isEmpty() && file.write(data) != data.size())
            writeError = errno != 0 ? errno : EIO;
    };
    QObject::connect(reply.get(), &QNetworkReply::readyRead, reply.get(), [&] {
        drain();
        if (writeError != 0) // stop once this handler has returned
            QMetaObject::invokeMethod(reply.get(), &QNetworkReply::abort, Qt::QueuedConnection);
    });
    if (onProgress)
        QObject::connect(reply.get(), &QNetworkReply::downloadProgress, reply.get(), onProgress);

    QCoro::Task<bool> finished =
        qCoro(reply.get()).waitForFinished(); // no temporaries inside co_await (g++ 12)
    co_await finished;

    drain();
    errno = 0;
    if (writeError == 0 && !file.flush())
        writeError = errno != 0 ? errno : EIO;
    if (writeError != 0)
        throw UpdaterError(writeFailure(file.fileName(), writeError));
    if (reply->error() != QNetworkReply::NoError)
        throw UpdaterError(networkErrorText(*reply));
    if (length.differsFromAnnounced(file.size()))
        throw UpdaterError(connectionLostText());
    file.setAutoRemove(false);
    file.close();
    co_return file.fileName();
}
