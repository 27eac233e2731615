#include "engine_client/BackendService.h"

#include "engine_client/APIErrorDetail.h"
#include "engine_client/BackendError.h"
#include "engine_client/CreateJobRequest.h"
#include "engine_client/DecodingError.h"
#include "engine_client/FilePost.h"
#include "engine_client/JobCreateResponse.h"
#include "engine_client/MultipartUpload.h"
#include "engine_client/TextPrefix.h"
#include "engine_client/TransportError.h"
#include "engine_client/UploadError.h"
#include "engine_client/WriteProgress.h"
#include "platform/Places.h"
#include "runtime/PythonRuntimeService.h"

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroNetworkReply>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QSaveFile>
#include <QStringDecoder>
#include <QTimer>
#include <QUuid>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <memory>
#include <thread>

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

// The body file's preparation failure, or the exchange that sent it.
struct Upload {
    std::optional<QString> preparationFailure;
    FilePost::Outcome outcome;
};

// Assembles the body in `request.filePath` on a thread of its own while this one sends it, each chunk
// once it is written, then deletes it whatever happened. Blocking.
Upload sendThroughBodyFile(const FilePost::Request& request, const QString& filePath, const QString& boundary,
                           const QList<StemKind>& stems) {
    WriteProgress progress;
    std::optional<QString> writeFailure;
    std::thread writer([&] {
        try {
            MultipartUpload::writeBody(filePath, request.filePath, boundary, stems, &progress);
            progress.finish(true);
        } catch (const UploadError& error) {
            writeFailure = error.message();
            progress.finish(false);
        }
    });
    Upload upload;
    if (const std::optional<qint64> bodySize = progress.waitForPlan()) {
        FilePost::Request following = request;
        following.finalFileSize = *bodySize;
        following.bytesWritten = [&progress](qint64 offset) { return progress.waitBeyond(offset); };
        upload.outcome = FilePost::send(following);
    }
    progress.abandon();
    writer.join();
    QFile::remove(request.filePath);
    upload.preparationFailure = writeFailure; // it explains any failure of the sending
    return upload;
}

// Runs the upload on the thread pool.
// (A plain function: lambdas capturing by copy inside a coroutine are miscompiled by g++ 12.)
QFuture<Upload> uploadInBackground(const FilePost::Request& request, const QString& filePath,
                                   const QString& boundary, const QList<StemKind>& stems) {
    return QtConcurrent::run([request, filePath, boundary, stems] {
        return sendThroughBodyFile(request, filePath, boundary, stems);
    });
}

[[noreturn]] void raiseUploadFailure(const FilePost::Failure& failure, const QString& filePath) {
    switch (failure.kind) {
    case FilePost::Failure::Kind::openFile:
        throw UploadError(MultipartUpload::openFailure(filePath, failure.detail));
    case FilePost::Failure::Kind::readFile:
        throw UploadError(MultipartUpload::readFailure(filePath, failure.detail));
    case FilePost::Failure::Kind::transport:
        break;
    }
    throw TransportError(failure.code, failure.detail);
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
                                    const QByteArray& contentType, const QByteArray& body) {
    QNetworkRequest request(endpoint(path));
    request.setTransferTimeout(int(idleTimeout.count()));
    if (!contentType.isEmpty())
        request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    QNetworkReply* reply = nullptr;
    if (method == Method::get)
        reply = m_network.get(request);
    else
        reply = m_network.post(request, body);
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

QByteArray BackendService::accepted(std::optional<int> status, const QByteArray& body) const {
    if (status && *status >= 400) {
        const QString message = errorMessage(*status, body);
        m_config.console(QStringLiteral("[Halvorn] ❌ Backend %1: %2").arg(*status).arg(message));
        throw BackendError(message);
    }
    return body;
}

QCoro::Task<QByteArray> BackendService::answer(QNetworkReply* reply) {
    if (!reply->isFinished()) {
        QCoro::Task<bool> finished = qCoro(reply).waitForFinished();
        co_await finished;
    }
    if (std::optional<TransportError> failure = transportFailure(reply))
        throw *failure;
    const QByteArray body = accepted(statusOf(reply), reply->readAll());
    co_return body;
}

QCoro::Task<std::optional<BackendHealth>> BackendService::health() {
    const ReplyPtr reply(send(Method::get, QStringLiteral("api/health"), healthTimeout));
    QCoro::Task<bool> finished = qCoro(reply.get()).waitForFinished();
    co_await finished;
    if (transportFailure(reply.get()) || statusOf(reply.get()) != 200)
        co_return std::nullopt;
    co_return BackendHealth::fromJsonText(reply->readAll());
}

QCoro::Task<bool> BackendService::isReady() {
    QCoro::Task<std::optional<BackendHealth>> checking = health();
    const std::optional<BackendHealth> record = co_await checking;
    if (!record)
        co_return false;
    if (m_config.recordRunningVersion)
        m_config.recordRunningVersion(record->version);
    co_return record->isOk();
}

QString BackendService::jobIdOf(const QByteArray& body) {
    const std::optional<JobCreateResponse> created = JobCreateResponse::fromJsonText(body);
    if (!created)
        throw DecodingError(QStringLiteral("Réponse du moteur illisible : identifiant de tâche manquant."));
    return created->jobId;
}

QCoro::Task<QString> BackendService::createJobFromFile(QString filePath, QList<StemKind> stems) {
    const QString boundary = MultipartUpload::newBoundary();
    FilePost::Request request;
    request.url = endpoint(QStringLiteral("api/jobs"));
    request.contentType = MultipartUpload::contentTypeHeader(boundary);
    request.filePath = QDir(m_config.tempDir)
                           .filePath(QStringLiteral("upload-%1.multipart")
                                         .arg(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()));
    request.chunkBytes = MultipartUpload::chunkBytes;
    request.idleTimeout = postTimeout;
    request.totalTimeout = resourceTimeout;
    QFuture<Upload> uploading = uploadInBackground(request, filePath, boundary, stems);
    const Upload upload = co_await uploading;
    if (upload.preparationFailure)
        throw UploadError(*upload.preparationFailure);
    if (const auto* failure = std::get_if<FilePost::Failure>(&upload.outcome))
        raiseUploadFailure(*failure, filePath);
    const FilePost::Answer& answer = std::get<FilePost::Answer>(upload.outcome);
    const QByteArray body = accepted(answer.status, answer.body);
    const QString jobId = jobIdOf(body);
    co_return jobId;
}

QCoro::Task<QString> BackendService::createJobFromURL(QString url, QList<StemKind> stems) {
    const QByteArray body = CreateJobRequest::from(url, stems).toJsonText();
    const ReplyPtr reply(
        send(Method::post, QStringLiteral("api/jobs"), postTimeout, "application/json", body));
    QCoro::Task<QByteArray> answering = answer(reply.get());
    const QByteArray answerBody = co_await answering;
    const QString jobId = jobIdOf(answerBody);
    co_return jobId;
}

QCoro::Task<StemJob> BackendService::getJob(QString id) {
    const ReplyPtr reply(send(Method::get, jobPath(id), requestTimeout));
    QCoro::Task<QByteArray> answering = answer(reply.get());
    const QByteArray body = co_await answering;
    std::optional<StemJob> job = StemJob::fromJsonText(body);
    if (!job)
        throw DecodingError(QStringLiteral("Réponse du moteur illisible : tâche %1.").arg(id));
    co_return std::move(*job);
}

QCoro::Task<QList<StemJob>> BackendService::listJobs() {
    const ReplyPtr reply(send(Method::get, QStringLiteral("api/jobs"), requestTimeout));
    QCoro::Task<QByteArray> answering = answer(reply.get());
    const QByteArray body = co_await answering;
    std::optional<QList<StemJob>> jobs = StemJob::listFromJsonText(body);
    if (!jobs)
        throw DecodingError(QStringLiteral("Réponse du moteur illisible : liste des tâches."));
    std::stable_sort(jobs->begin(), jobs->end(),
                     [](const StemJob& a, const StemJob& b) { return a.createdAt > b.createdAt; });
    co_return std::move(*jobs);
}

QCoro::Task<> BackendService::cancelJob(QString id) {
    const ReplyPtr reply(send(Method::post, jobPath(id, "/cancel"), postTimeout));
    QCoro::Task<QByteArray> answering = answer(reply.get());
    co_await answering;
}

QCoro::Task<> BackendService::trashJob(QString id) {
    const ReplyPtr reply(send(Method::post, jobPath(id, "/trash"), postTimeout));
    QCoro::Task<QByteArray> answering = answer(reply.get());
    co_await answering;
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
    QCoro::Task<bool> finished = qCoro(stemReply).waitForFinished();
    co_await finished;
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
