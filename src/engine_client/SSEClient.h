#pragma once

#include "audio/ConsoleLine.h"
#include "engine_client/SSEEventCutter.h"
#include "engine_client/SSEJobEvent.h"
#include "engine_client/TransportError.h"

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <chrono>
#include <functional>
#include <memory>

class QNetworkAccessManager;
class QNetworkReply;

// Follows one job's event stream (GET …/events) and hands every decoded job to its owner on the main
// thread, until a final status, the end of the stream or stop(). After a final status the client stops
// itself. onComplete is called exactly once per stream, whatever ends it — except stop(), after which
// nothing at all is delivered. A client serves one stream; destroying it stops it.
class SSEClient : public QObject {
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds idleTimeout{60000};
    static constexpr std::chrono::milliseconds resourceTimeout{14400000};

    explicit SSEClient(QUrl url, QObject* parent = nullptr);
    ~SSEClient() override;

    // Set before start().
    std::function<void(const SSEJobEvent&)> onEvent;
    std::function<void(const TransportError&)> onError;
    std::function<void()> onComplete;
    ConsoleLineSink console = printConsoleLine; // "[SSE] …" lines

    const QUrl& url() const { return m_url; }
    bool isFinished() const { return m_finished; }
    bool isStreaming() const { return m_task != nullptr; }

    void start();
    void stop();

private:
    void receive();
    void handleData(const QByteArray& json);
    void deliver(const StemJob& job);
    void complete(std::optional<TransportError> error);

    QUrl m_url;
    std::unique_ptr<QNetworkAccessManager> m_session;
    QPointer<QNetworkReply> m_task;
    std::unique_ptr<SSEEventCutter> m_cutter;
    bool m_finished = false;
    bool m_stopped = false;
    bool m_resourceTimedOut = false;
};
