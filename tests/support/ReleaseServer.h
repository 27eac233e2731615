#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QString>
#include <memory>

class QObject;
class QThread;
class QTcpServer;

// A GitHub-like HTTP/1.1 server on 127.0.0.1 for the updater's tests: fixed answers by path, every
// request recorded. It serves from a thread of its own, so a test may block (waiting for a child
// process, say) while it answers.
class ReleaseServer {
public:
    struct Response {
        int status = 200;
        QByteArray contentType = "application/json";
        QByteArray body;
        bool hang = false;    // never answers; the connection stays open
        qint64 cutAfter = -1; // announces the whole body, sends this many bytes of it, then closes
    };
    struct Request {
        QByteArray method;
        QByteArray path;                      // with its query, as sent
        QMap<QByteArray, QByteArray> headers; // names in lower case
    };

    ReleaseServer();
    ~ReleaseServer();
    ReleaseServer(const ReleaseServer&) = delete;
    ReleaseServer& operator=(const ReleaseServer&) = delete;

    // "http://127.0.0.1:{port}"
    QString baseUrl() const;
    // What `path` (without query) answers from now on; unknown paths get GitHub's 404 document.
    void route(const QByteArray& path, const Response& response);
    QList<Request> requests() const;
    int requestCount(const QByteArray& path) const;

private:
    void serve(class QTcpSocket* socket, const QByteArray& head);

    std::unique_ptr<QThread> m_thread;
    std::unique_ptr<QObject> m_context; // lives in m_thread: where the server's work is queued
    QTcpServer* m_server = nullptr; // lives in m_thread
    quint16 m_port = 0;
    mutable QMutex m_mutex;
    QMap<QByteArray, Response> m_routes;
    QList<Request> m_requests;
};
