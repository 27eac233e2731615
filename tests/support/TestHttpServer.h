#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QUrl>
#include <functional>
#include <memory>

class QObject;
class QThread;
class QTcpServer;

// A scriptable HTTP/1.1 server on 127.0.0.1 (a free port) for tests. It serves from a thread of its own,
// so a test may block while it answers. Every request is recorded with its body. A response can be
// delayed, cut into chunks sent apart (at any byte, even inside a character), left hanging, held open
// after its chunks, or dropped before its end. Every answer closes its connection.
class TestHttpServer {
public:
    struct Request {
        QByteArray method;
        QByteArray path;                      // with its query, as sent
        QMap<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
    };

    struct Response {
        enum class Framing { contentLength, chunked, untilClose };

        int status = 200;
        QByteArray contentType = "application/json";
        QList<QPair<QByteArray, QByteArray>> headers; // extra header lines
        QList<QByteArray> chunks;                     // the body, written piece by piece
        Framing framing = Framing::contentLength;
        int delayMs = 0;       // before the status line
        int chunkDelayMs = 0;  // between two chunks
        bool hang = false;     // never answers; the connection stays open
        bool holdOpen = false; // after the last chunk the connection stays open, the body unfinished
        bool drop = false;     // after the last chunk the connection is reset, the body unfinished

        static Response json(int status, const QByteArray& body);
        static Response text(int status, const QByteArray& body);
        // text/event-stream, sent until the connection closes.
        static Response eventStream(const QList<QByteArray>& chunks, int chunkDelayMs = 0);
    };

    using Handler = std::function<Response(const Request&)>;

    TestHttpServer();
    ~TestHttpServer();
    TestHttpServer(const TestHttpServer&) = delete;
    TestHttpServer& operator=(const TestHttpServer&) = delete;

    // "http://127.0.0.1:{port}/"
    QUrl baseUrl() const;
    quint16 port() const { return m_port; }

    // What `method` on `path` (without its query) answers from now on. Handlers run on the server's
    // thread. Unrouted requests get 404 with {"detail":"Not Found"}.
    void route(const QByteArray& method, const QByteArray& path, const Response& response);
    void route(const QByteArray& method, const QByteArray& path, Handler handler);
    // When false, request bodies are read and counted but not kept (large uploads).
    void setRecordBodies(bool record);
    // When true, a request is answered as soon as its head has arrived; its body is left unread, and the
    // connection is closed after the answer.
    void setAnswerBeforeBody(bool early);

    QList<Request> requests() const;
    int requestCount(const QByteArray& path) const;
    qint64 bodyBytesReceived() const;
    // Closes every open connection (hanging or held ones included).
    void closeConnections();

private:
    friend class TestHttpConnection;
    Response respond(const Request& request);
    bool countBodyBytes(qint64 count); // whether bodies are kept
    bool answersBeforeBody() const;

    std::unique_ptr<QThread> m_thread;
    std::unique_ptr<QObject> m_context; // lives in m_thread
    QTcpServer* m_server = nullptr;     // lives in m_thread
    quint16 m_port = 0;
    mutable QMutex m_mutex;
    QMap<QByteArray, Handler> m_routes; // "METHOD path"
    QList<Request> m_requests;
    bool m_recordBodies = true;
    bool m_answerBeforeBody = false;
    qint64 m_bodyBytes = 0;
};
