#include "ReleaseLookup.h"

#include <QCoro/QCoroNetworkReply>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <memory>

namespace ReleaseLookup {

namespace {

QNetworkRequest requestFor(const QUrl& address) {
    QNetworkRequest request(address);
    request.setTransferTimeout(timeoutMs);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Marlune"));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    return request;
}

// The JSON object of a 200 answer to GET `request`; empty otherwise.
QCoro::Task<QJsonObject> fetchObject(QNetworkRequest request) {
    QNetworkAccessManager network;
    std::unique_ptr<QNetworkReply> reply(network.get(request));
    QNetworkReply* answer = reply.get();
    co_await answer;
    if (reply->error() != QNetworkReply::NoError ||
        reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200)
        co_return QJsonObject();
    co_return QJsonDocument::fromJson(reply->readAll()).object();
}

std::optional<QString> nonEmptyText(const QJsonValue& value) {
    if (!value.isString() || value.toString().trimmed().isEmpty())
        return std::nullopt;
    return value.toString().trimmed();
}

} // namespace

QCoro::Task<std::optional<QString>> latestRelease(BaseAddresses addresses, QString repo) {
    QNetworkRequest api = requestFor(
        BaseAddresses::join(addresses.githubApi, QStringLiteral("/repos/%1/releases/latest").arg(repo)));
    api.setRawHeader("Accept", "application/vnd.github+json");
    const QJsonObject release = co_await fetchObject(api);
    if (const std::optional<QString> tag = nonEmptyText(release.value(QStringLiteral("tag_name"))))
        co_return tag;

    QNetworkAccessManager network;
    const QNetworkRequest page =
        requestFor(BaseAddresses::join(addresses.githubWeb, QStringLiteral("/%1/releases/latest").arg(repo)));
    std::unique_ptr<QNetworkReply> reply(network.head(page));
    QNetworkReply* answer = reply.get();
    co_await answer;
    const QString path = reply->url().path();
    if (reply->error() != QNetworkReply::NoError || !path.contains(QStringLiteral("/releases/tag/")))
        co_return std::nullopt;
    const QString tag = path.section(QLatin1Char('/'), -1);
    co_return tag.isEmpty() ? std::nullopt : std::optional<QString>(tag);
}

QCoro::Task<std::optional<QString>> latestPyPIVersion(BaseAddresses addresses, QString package) {
    const QNetworkRequest request =
        requestFor(BaseAddresses::join(addresses.pypi, QStringLiteral("/pypi/%1/json").arg(package)));
    const QJsonObject document = co_await fetchObject(request);
    co_return nonEmptyText(
        document.value(QStringLiteral("info")).toObject().value(QStringLiteral("version")));
}

} // namespace ReleaseLookup
