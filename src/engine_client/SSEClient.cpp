#include "engine_client/SSEClient.h"

#include "engine_client/TextPrefix.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTimer>

namespace {
constexpr int kUnreadablePrefixLength = 200;
}

SSEClient::SSEClient(QUrl url, QObject* parent)
    : QObject(parent)
    , m_url(std::move(url)) {}

SSEClient::~SSEClient() {
    stop();
}

void SSEClient::start() {
    if (m_task || m_stopped || m_finished)
        return;
    if (!m_session) {
        m_session = std::make_unique<QNetworkAccessManager>();
        m_session->setProxy(QNetworkProxy::NoProxy);
    }
    m_cutter = std::make_unique<SSEEventCutter>(console);
    QNetworkRequest request(m_url);
    request.setTransferTimeout(int(idleTimeout.count()));
    request.setRawHeader("Accept", "text/event-stream");
    request.setRawHeader("Cache-Control", "no-cache");
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    m_task = m_session->get(request);
    connect(m_task, &QNetworkReply::readyRead, this, &SSEClient::receive);
    connect(m_task, &QNetworkReply::finished, this, [this, reply = m_task] {
        if (reply != m_task)
            return;
        receive();
        std::optional<TransportError> error;
        if (m_resourceTimedOut)
            error.emplace(QNetworkReply::TimeoutError, reply->errorString());
        else if (TransportError::failedInTransport(reply))
            error.emplace(reply->error(), reply->errorString());
        // Delivered after the events already queued.
        QMetaObject::invokeMethod(
            this, [this, error] { complete(error); }, Qt::QueuedConnection);
    });
    QTimer::singleShot(resourceTimeout, m_task, [this] {
        m_resourceTimedOut = true;
        m_task->abort();
    });
}

void SSEClient::stop() {
    m_stopped = true;
    if (m_task) {
        QNetworkReply* task = m_task;
        m_task = nullptr;
        task->disconnect(this);
        task->abort();
        task->deleteLater();
    }
    if (m_session) {
        m_session->disconnect(this);
        m_session.release()->deleteLater(); // outlives the reply it still owns until the loop runs
    }
}

void SSEClient::receive() {
    if (!m_task || m_stopped)
        return;
    const QByteArray chunk = m_task->readAll();
    if (chunk.isEmpty())
        return;
    for (const QByteArray& json : m_cutter->feed(chunk))
        handleData(json);
}

void SSEClient::handleData(const QByteArray& json) {
    std::optional<StemJob> job = StemJob::fromJsonText(json);
    if (!job) {
        console(QStringLiteral("[SSE] événement illisible: ") +
                textPrefix(QString::fromUtf8(json), kUnreadablePrefixLength));
        return;
    }
    QMetaObject::invokeMethod(
        this, [this, job = std::move(*job)] { deliver(job); }, Qt::QueuedConnection);
}

void SSEClient::deliver(const StemJob& job) {
    if (m_finished || m_stopped)
        return;
    const QPointer<SSEClient> alive(this);
    if (onEvent)
        onEvent(SSEJobEvent{job});
    if (!alive || m_stopped || !JobStatuses::isFinal(job.status))
        return;
    m_finished = true;
    if (onComplete)
        onComplete();
    if (alive)
        stop();
}

void SSEClient::complete(std::optional<TransportError> error) {
    if (m_finished || m_stopped)
        return;
    m_finished = true;
    const QPointer<SSEClient> alive(this);
    if (error && !error->isCancellation() && onError)
        onError(*error);
    if (alive && onComplete)
        onComplete();
    if (alive)
        stop();
}
