#include "ReleaseServer.h"

#include <QMutexLocker>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

namespace {

QByteArray reasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 500:
        return "Internal Server Error";
    default:
        return "Status";
    }
}

ReleaseServer::Response notFound() {
    ReleaseServer::Response response;
    response.status = 404;
    response.body = R"({"message":"Not Found","documentation_url":"https://docs.github.com/rest"})";
    return response;
}

} // namespace

ReleaseServer::ReleaseServer()
    : m_thread(std::make_unique<QThread>())
    , m_context(std::make_unique<QObject>()) {
    m_context->moveToThread(m_thread.get());
    m_thread->start();
    QMetaObject::invokeMethod(
        m_context.get(),
        [this] {
            m_server = new QTcpServer;
            m_server->listen(QHostAddress::LocalHost, 0);
            m_port = m_server->serverPort();
            QObject::connect(m_server, &QTcpServer::newConnection, m_server, [this] {
                while (QTcpSocket* socket = m_server->nextPendingConnection()) {
                    auto buffer = std::make_shared<QByteArray>();
                    QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer] {
                        buffer->append(socket->readAll());
                        const qsizetype end = buffer->indexOf("\r\n\r\n");
                        if (end < 0)
                            return;
                        const QByteArray head = buffer->left(end);
                        buffer->clear();
                        serve(socket, head);
                    });
                    QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                }
            });
        },
        Qt::BlockingQueuedConnection);
}

ReleaseServer::~ReleaseServer() {
    QMetaObject::invokeMethod(
        m_context.get(), [this] { delete m_server; }, Qt::BlockingQueuedConnection);
    m_thread->quit();
    m_thread->wait();
}

QString ReleaseServer::baseUrl() const {
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

void ReleaseServer::route(const QByteArray& path, const Response& response) {
    QMutexLocker lock(&m_mutex);
    m_routes.insert(path, response);
}

QList<ReleaseServer::Request> ReleaseServer::requests() const {
    QMutexLocker lock(&m_mutex);
    return m_requests;
}

int ReleaseServer::requestCount(const QByteArray& path) const {
    QMutexLocker lock(&m_mutex);
    int count = 0;
    for (const Request& request : m_requests)
        if (request.path.split('?').first() == path)
            ++count;
    return count;
}

void ReleaseServer::serve(QTcpSocket* socket, const QByteArray& head) {
    const QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    Request request;
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines.at(i).indexOf(':');
        if (colon > 0)
            request.headers.insert(lines.at(i).left(colon).trimmed().toLower(),
                                   lines.at(i).mid(colon + 1).trimmed());
    }
    Response response;
    {
        QMutexLocker lock(&m_mutex);
        m_requests.append(request);
        response = m_routes.value(request.path.split('?').first(), notFound());
    }
    if (response.hang)
        return;
    QByteArray reply = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' +
                       reasonPhrase(response.status) + "\r\nContent-Type: " + response.contentType +
                       "\r\nContent-Length: " + QByteArray::number(response.body.size()) +
                       "\r\nConnection: close\r\n\r\n";
    reply += response.cutAfter >= 0 ? response.body.left(response.cutAfter) : response.body;
    socket->write(reply);
    socket->disconnectFromHost();
}
