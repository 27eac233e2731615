#pragma once

#include "audio/ConsoleLine.h"
#include "audio/StemKind.h"
#include "engine_client/BackendHealth.h"
#include "engine_client/StemJob.h"

#include <QCoro/QCoroTask>
#include <QNetworkAccessManager>
#include <QObject>
#include <QUrl>
#include <chrono>
#include <functional>
#include <optional>

class QNetworkReply;

// The only client of the engine's web interface. Failed calls raise BackendError (the engine answered
// 400 or more), TransportError (no usable answer) or DecodingError (an unreadable record); health() and
// downloadStem() never raise; createJobFromFile() also raises UploadError (the file cannot be read). Used
// from the main thread; requests run on Qt's network threads, uploads on the thread pool.
class BackendService : public QObject {
    Q_OBJECT

public:
    struct Config {
        QUrl baseURL;      // requests append their path to it
        QString cacheRoot; // stems of job {id} go to "{cacheRoot}/{id}"
        QString tempDir;   // where upload bodies are assembled
        // Told the version of every health record that arrives (the runtime's running version).
        std::function<void(const std::optional<QString>& version)> recordRunningVersion;
        ConsoleLineSink console = printConsoleLine; // "[Halvorn] …" lines
    };

    static constexpr std::chrono::milliseconds healthTimeout{3000};
    static constexpr std::chrono::milliseconds postTimeout{60000};
    static constexpr std::chrono::milliseconds requestTimeout{300000};   // idle time of any other request
    static constexpr std::chrono::milliseconds resourceTimeout{3600000}; // whole life of a request

    // "http://127.0.0.1:8000/".
    static QUrl defaultBaseURL();
    // The base address from MARLUNE_ENGINE_URL, else the default one; the user's caches folder
    // + "/Halvorn"; the temporary folder; the shared runtime service's running version.
    static Config defaultConfig();
    static BackendService& shared();

    explicit BackendService(Config config = defaultConfig(), QObject* parent = nullptr);

    const QUrl& baseURL() const { return m_config.baseURL; }
    // The address of `path` under the base address, e.g. endpoint("api/health").
    QUrl endpoint(const QString& path) const;
    // "api/jobs/{id}/events", for the job's event stream.
    QUrl eventsURL(const QString& jobId) const;

    QCoro::Task<std::optional<BackendHealth>> health();
    QCoro::Task<bool> isReady();
    // POSTs the multipart form of MultipartUpload, its file part sent straight from the file.
    QCoro::Task<QString> createJobFromFile(QString filePath, QList<StemKind> stems);
    QCoro::Task<QString> createJobFromURL(QString url, QList<StemKind> stems);
    QCoro::Task<StemJob> getJob(QString id);
    // Newest first.
    QCoro::Task<QList<StemJob>> listJobs();
    QCoro::Task<> cancelJob(QString id);
    QCoro::Task<> trashJob(QString id);
    // The stem's file in the job's cache folder, downloaded when not there yet; none when the engine
    // does not have it or the download fails.
    QCoro::Task<std::optional<QString>> downloadStem(QString jobId, StemKind kind);
    // Where `fileName` of job `jobId` lies in the stem cache; creates the job's folder.
    QString localStemURL(const QString& jobId, const QString& fileName) const;

    // The message of a failed answer: the engine's "detail", else the first 300 characters of a UTF-8
    // body, else "HTTP {status}".
    static QString errorMessage(int status, const QByteArray& body);

private:
    enum class Method { get, post };
    QNetworkReply* send(Method method, const QString& path, std::chrono::milliseconds idleTimeout,
                        const QByteArray& contentType = {}, const QByteArray& body = {});
    // Waits for the answer and returns its body; raises TransportError or BackendError.
    QCoro::Task<QByteArray> answer(QNetworkReply* reply);
    // The body of an answer; raises BackendError when the status is 400 or more.
    QByteArray accepted(std::optional<int> status, const QByteArray& body) const;
    // Raises DecodingError when the body holds no job identifier.
    static QString jobIdOf(const QByteArray& body);
    static QString jobPath(const QString& id, const QString& rest = {});

    Config m_config;
    QNetworkAccessManager m_network;
};
