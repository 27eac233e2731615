#include "diagnostics/PlainHttpClient.h"

#include "engine_client/TransportError.h"

#include <QCoro/QCoroNetworkReply>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <memory>

namespace {

struct ReplyDeleter {
    void operator()(QNetworkReply* reply) const { reply->deleteLater(); }
};
using ReplyPtr = std::unique_ptr<QNetworkReply, ReplyDeleter>;

QCoro::Task<std::optional<QByteArray>> bodyOf(QNetworkReply* reply) {
    if (!reply->isFinished()) {
        QCoro::Task<bool> finished = qCoro(reply).waitForFinished();
        co_await finished;
    }
    if (TransportError::failedInTransport(reply))
        co_return std::nullopt;
    co_return reply->readAll();
}

QNetworkRequest requestFor(const QUrl& url, std::chrono::milliseconds timeout) {
    QNetworkRequest request(url);
    request.setTransferTimeout(int(timeout.count()));
    return request;
}

} // namespace

PlainHttpClient::PlainHttpClient() {
    m_network.setProxy(QNetworkProxy::NoProxy);
}

QCoro::Task<std::optional<QByteArray>> PlainHttpClient::get(QUrl url, std::chrono::milliseconds timeout) {
    const ReplyPtr reply(m_network.get(requestFor(url, timeout)));
    QCoro::Task<std::optional<QByteArray>> answer = bodyOf(reply.get());
    const std::optional<QByteArray> body = co_await answer;
    co_return body;
}

QCoro::Task<std::optional<QByteArray>>
PlainHttpClient::post(QUrl url, QByteArray contentType, QByteArray body, std::chrono::milliseconds timeout) {
    QNetworkRequest request = requestFor(url, timeout);
    request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    const ReplyPtr reply(m_network.post(request, body));
    QCoro::Task<std::optional<QByteArray>> answer = bodyOf(reply.get());
    const std::optional<QByteArray> received = co_await answer;
    co_return received;
}
