#include "TestHttpServer.h"

#include <QMutexLocker>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

// One accepted connection: reads one request, then writes its scripted response.
class TestHttpConnection : public QObject {
public:
    TestHttpConnection(TestHttpServer* server, QTcpSocket* socket)
        : QObject(socket)
        , m_server(server)
        , m_socket(socket) {
        connect(socket, &QTcpSocket::readyRead, this, &TestHttpConnection::read);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }

private:
    void read() {
        if (m_answeredBeforeBody)
            return; // the body stays in the socket
        m_input.append(m_socket->readAll());
        if (m_answered)
            return;
        if (!m_headRead && !readHead())
            return;
        if (m_server->answersBeforeBody()) {
            m_socket->setReadBufferSize(1);
            m_answered = m_answeredBeforeBody = true;
            answer(m_server->respond(m_request));
            return;
        }
        if (!readBody())
            return;
        m_answered = true;
        answer(m_server->respond(m_request));
    }

    bool readHead() {
        const qsizetype end = m_input.indexOf("\r\n\r\n");
        if (end < 0)
            return false;
        const QList<QByteArray> lines = m_input.left(end).split('\n');
        m_input.remove(0, end + 4);
        const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
        m_request.method = requestLine.value(0);
        m_request.path = requestLine.value(1);
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines[i].indexOf(':');
            if (colon > 0)
                m_request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                         lines[i].mid(colon + 1).trimmed());
        }
        m_chunked = m_request.headers.value("transfer-encoding").toLower() == "chunked";
        m_remaining = m_request.headers.value("content-length", "0").toLongLong();
        m_headRead = true;
        return true;
    }

    // Consumes body bytes; true once the whole body has arrived.
    bool readBody() {
        if (m_chunked)
            return readChunkedBody();
        const qint64 take = std::min<qint64>(m_remaining, m_input.size());
        keep(m_input.left(take));
        m_input.remove(0, take);
        m_remaining -= take;
        return m_remaining == 0;
    }

    bool readChunkedBody() {
        for (;;) {
            const qsizetype lineEnd = m_input.indexOf("\r\n");
            if (lineEnd < 0)
                return false;
            bool ok = false;
            const qint64 size = m_input.left(lineEnd).split(';').value(0).trimmed().toLongLong(&ok, 16);
            if (m_input.size() < lineEnd + 2 + size + 2)
                return false;
            keep(m_input.mid(lineEnd + 2, size));
            m_input.remove(0, lineEnd + 2 + size + 2);
            if (!ok || size == 0)
                return true;
        }
    }

    void keep(const QByteArray& bytes) {
        if (m_server->countBodyBytes(bytes.size()))
            m_request.body.append(bytes);
    }

    void answer(const TestHttpServer::Response& response) {
        if (response.hang)
            return;
        QTimer::singleShot(response.delayMs, this, [this, response] {
            writeHead(response);
            writeChunk(response, 0);
        });
    }

    void writeHead(const TestHttpServer::Response& response) {
        using Framing = TestHttpServer::Response::Framing;
        QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n";
        head += "Content-Type: " + response.contentType + "\r\nConnection: close\r\n";
        for (const auto& [name, value] : response.headers)
            head += name + ": " + value + "\r\n";
        if (response.framing == Framing::contentLength) {
            qint64 length = 0;
            for (const QByteArray& chunk : response.chunks)
                length += chunk.size();
            if (response.drop || response.holdOpen)
                ++length; // announces more than will come
            head += "Content-Length: " + QByteArray::number(length) + "\r\n";
        } else if (response.framing == Framing::chunked) {
            head += "Transfer-Encoding: chunked\r\n";
        }
        m_socket->write(head + "\r\n");
    }

    void writeChunk(const TestHttpServer::Response& response, qsizetype index) {
        using Framing = TestHttpServer::Response::Framing;
        if (index == response.chunks.size()) {
            finish(response);
            return;
        }
        const QByteArray& chunk = response.chunks[index];
        if (response.framing == Framing::chunked) {
            if (!chunk.isEmpty())
                m_socket->write(QByteArray::number(chunk.size(), 16) + "\r\n" + chunk + "\r\n");
        } else {
            m_socket->write(chunk);
        }
        m_socket->flush();
        QTimer::singleShot(index + 1 < response.chunks.size() ? response.chunkDelayMs : 0, this,
                           [this, response, index] { writeChunk(response, index + 1); });
    }

    void finish(const TestHttpServer::Response& response) {
        if (response.holdOpen)
            return;
        if (response.drop) {
            m_socket->flush();
            m_socket->abort();
            return;
        }
        if (response.framing == TestHttpServer::Response::Framing::chunked)
            m_socket->write("0\r\n\r\n");
        m_socket->disconnectFromHost();
    }

    TestHttpServer* m_server;
    QTcpSocket* m_socket;
    QByteArray m_input;
    TestHttpServer::Request m_request;
    bool m_headRead = false;
    bool m_chunked = false;
    bool m_answered = false;
    bool m_answeredBeforeBody = false;
    qint64 m_remaining = 0;
};

TestHttpServer::Response TestHttpServer::Response::json(int status, const QByteArray& body) {
    Response response;
    response.status = status;
    response.chunks = {body};
    return response;
}

TestHttpServer::Response TestHttpServer::Response::text(int status, const QByteArray& body) {
    Response response = json(status, body);
    response.contentType = "text/plain; charset=utf-8";
    return response;
}

TestHttpServer::Response TestHttpServer::Response::eventStream(const QList<QByteArray>& chunks,
                                                               int chunkDelayMs) {
    Response response;
    response.contentType = "text/event-stream";
    response.chunks = chunks;
    response.chunkDelayMs = chunkDelayMs;
    response.framing = Framing::untilClose;
    return response;
}

TestHttpServer::TestHttpServer()
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
                while (QTcpSocket* socket = m_server->nextPendingConnection())
                    new TestHttpConnection(this, socket);
            });
        },
        Qt::BlockingQueuedConnection);
}

TestHttpServer::~TestHttpServer() {
    QMetaObject::invokeMethod(
        m_context.get(), [this] { delete m_server; }, Qt::BlockingQueuedConnection);
    m_thread->quit();
    m_thread->wait();
    m_context.reset();
}

QUrl TestHttpServer::baseUrl() const {
    return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_port));
}

void TestHttpServer::route(const QByteArray& method, const QByteArray& path, const Response& response) {
    route(method, path, [response](const Request&) { return response; });
}

void TestHttpServer::route(const QByteArray& method, const QByteArray& path, Handler handler) {
    QMutexLocker lock(&m_mutex);
    m_routes.insert(method + ' ' + path, std::move(handler));
}

void TestHttpServer::setRecordBodies(bool record) {
    QMutexLocker lock(&m_mutex);
    m_recordBodies = record;
}

QList<TestHttpServer::Request> TestHttpServer::requests() const {
    QMutexLocker lock(&m_mutex);
    return m_requests;
}

int TestHttpServer::requestCount(const QByteArray& path) const {
    QMutexLocker lock(&m_mutex);
    return int(std::count_if(m_requests.begin(), m_requests.end(),
                             [&](const Request& request) { return request.path.split('?')[0] == path; }));
}

qint64 TestHttpServer::bodyBytesReceived() const {
    QMutexLocker lock(&m_mutex);
    return m_bodyBytes;
}

void TestHttpServer::setAnswerBeforeBody(bool early) {
    QMutexLocker lock(&m_mutex);
    m_answerBeforeBody = early;
}

bool TestHttpServer::answersBeforeBody() const {
    QMutexLocker lock(&m_mutex);
    return m_answerBeforeBody;
}

bool TestHttpServer::countBodyBytes(qint64 count) {
    QMutexLocker lock(&m_mutex);
    m_bodyBytes += count;
    return m_recordBodies;
}

void TestHttpServer::closeConnections() {
    QMetaObject::invokeMethod(
        m_context.get(),
        [this] {
            for (QTcpSocket* socket : m_server->findChildren<QTcpSocket*>())
                socket->abort();
        },
        Qt::BlockingQueuedConnection);
}

TestHttpServer::Response TestHttpServer::respond(const Request& request) {
    Handler handler;
    {
        QMutexLocker lock(&m_mutex);
        m_requests.append(request);
        handler = m_routes.value(request.method + ' ' + request.path.split('?')[0]);
    }
    if (!handler)
        return Response::json(404, R"({"detail":"Not Found"})");
    return handler(request);
}
