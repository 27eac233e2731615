#include "engine_client/BackendService.h"

#include "engine_client/APIErrorDetail.h"
#include "engine_client/BackendError.h"
#include "engine_client/CreateJobRequest.h"
#include "engine_client/DecodingError.h"
#include "engine_client/JobCreateResponse.h"
#include "engine_client/MultipartUpload.h"
#include "engine_client/TextPrefix.h"
#include "engine_client/TransportError.h"
#include "engine_client/UploadError.h"
#include "platform/Places.h"
#include "runtime/PythonRuntimeService.h"

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroNetworkReply>
#include <QDir>
#include <QFile>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QSaveFile>
#include <QStringDecoder>
#include <QTimer>
#include <QUuid>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <memory>

namespace {
constexpr int kMessagePrefixLength = 300;

struct ReplyDeleter {
    void operator()(QNetworkReply* reply) const { reply->deleteLater(); }
};
using ReplyPtr = std::unique_ptr<QNetworkReply, ReplyDeleter>;

// The answer's status code, or none when no HTTP answer arrived.
std::optional<int> statusOf(QNetworkReply* reply) {
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        return std::nullopt;
    return status.toInt();
}

// The transport failure of a finished reply, if it had one.
std::optional<TransportError> transportFailure(QNetworkReply* reply) {
    if (reply->property("marluneResourceTimeout").toBool())
        return TransportError(QNetworkReply::TimeoutError, reply->errorString());
    if (TransportError::failedInTransport(reply))
        return TransportError(reply->error(), reply->errorString());
    return std::nullopt;
}

// Deletes a file when the scope ends, whatever the way out; a failure is ignored.
struct RemovedOnExit {
    QString path;
    ~RemovedOnExit() { QFile::remove(path); }
};

// Assembles the upload body on the thread pool; the future holds the failure message, empty on success.
// (A plain function: lambdas capturing by copy inside a coroutine are miscompiled by g++ 12.)
QFuture<QString> writeBodyInBackground(const QString& filePath, const QString& bodyPath,
                                       const QString& boundary, const QList<StemKind>& stems) {
    return QtConcurrent::run([filePath, bodyPath, boundary, stems]() -> QString {
        try {
            MultipartUpload::writeBody(filePath, bodyPath, boundary, stems);
            return QString();
        } catch (const UploadError& error) {
            return error.message();
        }
    });
}

std::optional<QString> decodeUtf8(const QByteArray& bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}
} // namespace

QUrl BackendService::defaultBaseURL() {
    return QUrl(QStringLiteral("http://127.0.0.1:8000/"));
}

BackendService::Config BackendService::defaultConfig() {
    const QString fromEnvironment = qEnvironmentVariable("MARLUNE_ENGINE_URL");
    Config config;
    config.baseURL = fromEnvironment.isEmpty() ? defaultBaseURL() : QUrl(fromEnvironment);
    config.cacheRoot = Places::cacheDir() + QStringLiteral("/Halvorn");
    config.tempDir = Places::tempDir();
    config.recordRunningVersion = [](const std::optional<QString>& version) {
        PythonRuntimeService::shared().setRunningVersion(version);
    };
    return config;
}

BackendService& BackendService::shared() {
    static BackendService* instance = new BackendService();
    return *instance;
}

BackendService::BackendService(Config config, QObject* parent)
    : QObject(parent)
    , m_config(std::move(config)) {
    QString path = m_config.baseURL.path();
    if (!path.endsWith(QLatin1Char('/')))
        m_config.baseURL.setPath(path + QLatin1Char('/'));
    m_network.setProxy(QNetworkProxy::NoProxy);
}

QUrl BackendService::endpoint(const QString& path) const {
    return m_config.baseURL.resolved(QUrl(path, QUrl::StrictMode));
}

QUrl BackendService::eventsURL(const QString& jobId) const {
    return endpoint(jobPath(jobId, "/events"));
}

QString BackendService::jobPath(const QString& id, const QString& rest) {
    return QStringLiteral("api/jobs/") + QString::fromLatin1(QUrl::toPercentEncoding(id)) + rest;
}

QNetworkReply* BackendService::send(Method method, const QString& path, std::chrono::milliseconds idleTimeout,
                                    const QByteArray& contentType, QIODevice* body, const QByteArray& bytes) {
    QNetworkRequest request(endpoint(path));
    request.setTransferTimeout(int(idleTimeout.count()));
    if (!contentType.isEmpty())
        request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    QNetworkReply* reply = nullptr;
    if (method == Method::get)
        reply = m_network.get(request);
    else if (body)
        reply = m_network.post(request, body);
    else
        reply = m_network.post(request, bytes);
    QTimer::singleShot(resourceTimeout, reply, [reply] {
        reply->setProperty("marluneResourceTimeout", true);
        reply->abort();
    });
    return reply;
}

QString BackendService::errorMessage(int status, const QByteArray& body) {
    QString message = QStringLiteral("HTTP %1").arg(status);
    if (body.isEmpty())
        return message;
    const std::optional<APIErrorDetail> error = APIErrorDetail::fromJsonText(body);
    if (error && error->detail)
        return error->detail->value;
    if (const std::optional<QString> text = decodeUtf8(body); text && !text->isEmpty())
        return textPrefix(*text, kMessagePrefixLength);
    return message;
}

QCoro::Task<QByteArray> BackendService::answer(QNetworkReply* reply) {
    if (!reply->isFinished())
        co_await qCoro(reply).waitForFinished();
    if (std::optional<TransportError> failure = transportFailure(reply))
        throw *failure;
    const QByteArray body = reply->readAll();
    const std::optional<int> status = statusOf(reply);
    if (status && *status >= 400) {
        const QString message = errorMessage(*status, body);
        m_config.console(QStringLiteral("[Halvorn] ❌ Backend %1: %2").arg(*status).arg(message));
        throw BackendError(message);
    }
    co_return body;
}

QCoro::Task<std::optional<BackendHealth>> BackendService::health() {
    const ReplyPtr reply(send(Method::get, QStringLiteral("api/health"), healthTimeout));
    co_await qCoro(reply.get()).waitForFinished();
    if (transportFailure(reply.get()) || statusOf(reply.get()) != 200)
        co_return std::nullopt;
    co_return BackendHealth::fromJsonText(reply->readAll());
}

QCoro::Task<bool> BackendService::isReady() {
    const std::optional<BackendHealth> record = co_await health();
    if (!record)
        co_return false;
    if (m_config.recordRunningVersion)
        m_config.recordRunningVersion(record->version);
    co_return record->isOk();
}

QCoro::Task<QString> BackendService::createdJobId(QNetworkReply* reply) {
    const QByteArray body = co_await answer(reply);
    const std::optional<JobCreateResponse> created = JobCreateResponse::fromJsonText(body);
    if (!created)
        throw DecodingError(QStringLiteral("Réponse du moteur illisible : identifiant de tâche manquant."));
    co_return created->jobId;
}

QCoro::Task<QString> BackendService::createJobFromFile(QString filePath, QList<StemKind> stems) {
    const QString boundary = MultipartUpload::newBoundary();
    const QString bodyPath =
        QDir(m_config.tempDir)
            .filePath(QStringLiteral("upload-%1.multipart")
                          .arg(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()));
    const RemovedOnExit removeBody{bodyPath};
    QFuture<QString> writing = writeBodyInBackground(filePath, bodyPath, boundary, stems);
    const QString writeFailure = co_await writing;
    if (!writeFailure.isEmpty())
        throw UploadError(writeFailure);
    auto* body = new QFile(bodyPath);
    if (!body->open(QIODevice::ReadOnly)) {
        const QString reason = body->errorString();
        delete body;
        throw TransportError(QNetworkReply::UnknownContentError, reason);
    }
    const ReplyPtr reply(send(Method::post, QStringLiteral("api/jobs"), postTimeout,
                              MultipartUpload::contentTypeHeader(boundary), body));
    body->setParent(reply.get());
    const QString jobId = co_await createdJobId(reply.get());
    co_return jobId;
}

QCoro::Task<QString> BackendService::createJobFromURL(QString url, QList<StemKind> stems) {
    const QByteArray body = CreateJobRequest::from(url, stems).toJsonText();
    const ReplyPtr reply(
        send(Method::post, QStringLiteral("api/jobs"), postTimeout, "application/json", nullptr, body));
    const QString jobId = co_await createdJobId(reply.get());
    co_return jobId;
}

QCoro::Task<StemJob> BackendService::getJob(QString id) {
    const ReplyPtr reply(send(Method::get, jobPath(id), requestTimeout));
    const QByteArray body = co_await answer(reply.get());
    std::optional<StemJob> job = StemJob::fromJsonText(body);
    if (!job)
        throw DecodingError(QStringLiteral("Réponse du moteur illisible : tâche %1.").arg(id));
    co_return std::move(*job);
}

QCoro::Task<QList<StemJob>> BackendService::listJobs() {
    const ReplyPtr reply(send(Method::get, QStringLiteral("api/jobs"), requestTimeout));
    const QByteArray body = co_await answer(reply.get());
    std::optional<QList<StemJob>> jobs = StemJob::listFromJsonText(body);
    if (!jobs)
        throw DecodingError(QStringLiteral("Réponse du moteur illisible : liste des tâches."));
    std::stable_sort(jobs->begin(), jobs->end(),
                     [](const StemJob& a, const StemJob& b) { return a.createdAt > b.createdAt; });
    co_return std::move(*jobs);
}

QCoro::Task<> BackendService::cancelJob(QString id) {
    const ReplyPtr reply(send(Method::post, jobPath(id, "/cancel"), postTimeout));
    co_await answer(reply.get());
}

QCoro::Task<> BackendService::trashJob(QString id) {
    const ReplyPtr reply(send(Method::post, jobPath(id, "/trash"), postTimeout));
    co_await answer(reply.get());
}

QString BackendService::localStemURL(const QString& jobId, const QString& fileName) const {
    const QDir folder(QDir(m_config.cacheRoot).filePath(jobId));
    folder.mkpath(QStringLiteral("."));
    return folder.filePath(fileName);
}

QCoro::Task<std::optional<QString>> BackendService::downloadStem(QString jobId, StemKind kind) {
    const QString raw = StemKinds::rawValue(kind);
    const QString destination = localStemURL(jobId, raw + QStringLiteral(".wav"));
    if (QFileInfo::exists(destination))
        co_return destination;
    QSaveFile file(destination);
    if (!file.open(QIODevice::WriteOnly)) {
        m_config.console(QStringLiteral("[Halvorn] Piste %1 indisponible : %2").arg(raw, file.errorString()));
        co_return std::nullopt;
    }
    const ReplyPtr reply(send(Method::get, jobPath(jobId, "/stems/" + raw + ".wav"), requestTimeout));
    QNetworkReply* stemReply = reply.get();
    connect(stemReply, &QNetworkReply::readyRead, stemReply, [stemReply, &file] {
        if (statusOf(stemReply) == 200)
            file.write(stemReply->readAll());
    });
    co_await qCoro(stemReply).waitForFinished();
    if (const std::optional<TransportError> failure = transportFailure(stemReply)) {
        file.cancelWriting();
        m_config.console(QStringLiteral("[Halvorn] Piste %1 indisponible : %2").arg(raw, failure->message()));
        co_return std::nullopt;
    }
    if (statusOf(stemReply) != 200) {
        file.cancelWriting();
        co_return std::nullopt;
    }
    file.write(stemReply->readAll());
    if (!file.commit()) {
        m_config.console(QStringLiteral("[Halvorn] Piste %1 indisponible : %2").arg(raw, file.errorString()));
        co_return std::nullopt;
    }
    co_return destination;
}
