#pragma once

#include <QByteArray>
#include <QCoro/QCoroTask>
#include <QNetworkAccessManager>
#include <QUrl>
#include <chrono>
#include <optional>

// HTTP requests whose result is the answer's body, whatever its status; none when no answer arrived
// (nothing listening, time-out, dropped connection). No proxy. Used from the thread it lives on.
class PlainHttpClient {
public:
    PlainHttpClient();

    // `timeout`: the longest wait without any data.
    QCoro::Task<std::optional<QByteArray>> get(QUrl url, std::chrono::milliseconds timeout);
    QCoro::Task<std::optional<QByteArray>> post(QUrl url, QByteArray contentType, QByteArray body,
                                                std::chrono::milliseconds timeout);

private:
    QNetworkAccessManager m_network;
};
