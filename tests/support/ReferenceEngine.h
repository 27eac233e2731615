#pragma once

#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>

// The real reference engine from the source tree, served by uvicorn on a free 127.0.0.1 port with its
// data in a temporary folder. Start it once per test suite.
class ReferenceEngine {
public:
    ReferenceEngine();
    ~ReferenceEngine();

    // Starts the engine and waits for its health; false (and a message in output()) when it did not come up.
    bool start(int timeoutMs = 60000);
    void stop();

    QUrl baseUrl() const; // "http://127.0.0.1:{port}/"
    quint16 port() const { return m_port; }
    QString dataDir() const { return m_data.path(); }
    QString output() const { return QString::fromUtf8(m_output); }

private:
    QTemporaryDir m_data;
    QProcess m_process;
    QByteArray m_output;
    quint16 m_port = 0;
};
