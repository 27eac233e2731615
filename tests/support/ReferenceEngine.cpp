#include "ReferenceEngine.h"

#include "TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcessEnvironment>
#include <QThread>

namespace {
bool answersHealth(const QUrl& base) {
    QNetworkAccessManager network;
    QNetworkRequest request(base.resolved(QUrl(QStringLiteral("api/health"))));
    request.setTransferTimeout(1000);
    QNetworkReply* reply = network.get(request);
    TestSupport::waitUntil([reply] { return reply->isFinished(); }, 2000);
    const bool ok = reply->isFinished() && reply->error() == QNetworkReply::NoError &&
                    reply->readAll().contains("\"ok\"");
    delete reply;
    return ok;
}
} // namespace

ReferenceEngine::ReferenceEngine() {
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process,
                     [this] { m_output += m_process.readAllStandardOutput(); });
}

ReferenceEngine::~ReferenceEngine() {
    stop();
}

bool ReferenceEngine::start(int timeoutMs) {
    m_port = TestSupport::freePort();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HALVORN_DATA_DIR"), m_data.path() + QStringLiteral("/data"));
    environment.insert(QStringLiteral("HALVORN_DEFAULT_JOBS_DIR"), m_data.path() + QStringLiteral("/jobs"));
    environment.insert(QStringLiteral("HALVORN_PERSIST_LIBRARY"), QStringLiteral("1"));
    environment.insert(QStringLiteral("PYTHONDONTWRITEBYTECODE"), QStringLiteral("1"));
    // The engine ends with the test process, even when a test crashes.
    environment.insert(QStringLiteral("HALVORN_PARENT_PID"),
                       QString::number(QCoreApplication::applicationPid()));
    for (const char* name : {"VIRTUAL_ENV", "PYTHONHOME", "PYTHONPATH", "CONDA_PREFIX"})
        environment.remove(QLatin1String(name));
    m_process.setProcessEnvironment(environment);
    m_process.setWorkingDirectory(qEnvironmentVariable("MARLUNE_SOURCE_DIR") +
                                  QStringLiteral("/reference-engine"));
    m_process.start(QStringLiteral("/usr/bin/python3"),
                    {QStringLiteral("-m"), QStringLiteral("uvicorn"), QStringLiteral("app.main:app"),
                     QStringLiteral("--host"), QStringLiteral("127.0.0.1"), QStringLiteral("--port"),
                     QString::number(m_port), QStringLiteral("--timeout-graceful-shutdown"),
                     QStringLiteral("2")});
    if (!m_process.waitForStarted(10000))
        return false;
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        if (m_process.state() == QProcess::NotRunning)
            return false;
        if (TestSupport::isListening(m_port) && answersHealth(baseUrl()))
            return true;
        TestSupport::waitUntil([] { return false; }, 200);
    }
    return false;
}

void ReferenceEngine::stop() {
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(2000);
    }
}

QUrl ReferenceEngine::baseUrl() const {
    return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_port));
}
