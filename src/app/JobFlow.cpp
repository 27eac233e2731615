// AppState: the job flow from the import action to the studio.
#include "AppState.h"

#include "engine_client/BackendError.h"
#include "engine_client/BackendService.h"
#include "engine_client/SSEClient.h"
#include "log/AppLogger.h"
#include "platform/UserError.h"
#include "runtime/PythonRuntimeService.h"
#include "runtime/ToolRunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>

namespace {
const QStringList kUploadedAsIs{QStringLiteral("mp3"), QStringLiteral("wav"), QStringLiteral("flac"),
                                QStringLiteral("mp4"), QStringLiteral("m4a"), QStringLiteral("ogg"),
                                QStringLiteral("opus")};
const QString kFailed = QStringLiteral("La séparation a échoué.");
const QString kLogsHint = QStringLiteral("\n\nConsulte les Logs (⬛) pour l'erreur complète.");

QString describe(const std::exception& error) {
    if (const auto* userError = dynamic_cast<const UserError*>(&error))
        return userError->message();
    return QString::fromUtf8(error.what());
}
} // namespace

QCoro::Task<QString> AppState::convertToFLAC(QString file) {
    const auto ffmpeg = m_runtime.ffmpegPath();
    if (!ffmpeg)
        throw BackendError(
            QStringLiteral("Format non pris en charge et FFmpeg introuvable pour le convertir."));
    const QFileInfo input(file);
    const QString output =
        QDir::tempPath() + QLatin1Char('/') + input.completeBaseName() + QStringLiteral(".flac");
    QFile::remove(output);
    const QStringList arguments{QStringLiteral("-y"),        QStringLiteral("-hide_banner"),
                                QStringLiteral("-loglevel"), QStringLiteral("error"),
                                QStringLiteral("-i"),        input.absoluteFilePath(),
                                QStringLiteral("-vn"),       QStringLiteral("-c:a"),
                                QStringLiteral("flac"),      output};
    const QString executable = *ffmpeg;
    co_await runTool(executable, arguments);
    co_return output;
}

QCoro::Task<> AppState::startImport(QString urlText, std::optional<QString> droppedFile) {
    QPointer<AppState> self(this);
    AppLogger& logger = AppLogger::shared();
    const QList<StemKind> stems = orderedStems(m_selectedStems);
    QString jobId;
    QString failure;
    try {
        if (!droppedFile) {
            logger.log(QStringLiteral("Traitement de l'URL : %1").arg(urlText), LogLevel::info);
            jobId = co_await m_backend.createJobFromURL(urlText, stems);
        } else {
            QString upload = *droppedFile;
            if (!kUploadedAsIs.contains(QFileInfo(upload).suffix().toLower())) {
                logger.log(QStringLiteral("Conversion en FLAC : %1").arg(QFileInfo(upload).fileName()),
                           LogLevel::info);
                upload = co_await convertToFLAC(upload);
            }
            logger.log(QStringLiteral("Envoi du fichier : %1").arg(QFileInfo(upload).fileName()),
                       LogLevel::info);
            jobId = co_await m_backend.createJobFromFile(upload, stems);
        }
    } catch (const std::exception& error) {
        failure = describe(error);
    }
    if (!self)
        co_return;
    if (jobId.isEmpty()) {
        if (failure.isEmpty())
            failure = QStringLiteral("Réponse du moteur sans identifiant de job.");
        logger.log(QStringLiteral("Échec de création du job : %1").arg(failure), LogLevel::error);
        m_importScreen.setErrorMessage(failure);
        m_importScreen.setProcessing(false);
        co_return;
    }
    logger.log(QStringLiteral("Job créé : %1").arg(jobId), LogLevel::ok);
    StemJob job;
    job.id = jobId;
    job.title = droppedFile ? QFileInfo(*droppedFile).completeBaseName() : urlText;
    job.createdAt = QDateTime::currentDateTimeUtc();
    setCurrentJob(job);
    setJobProgress(
        JobProgress{QString(), 0, JobStatuses::statusLabel(JobStatus::queued), false, false, std::nullopt});
    setScreen(AppScreen::processing);
    m_importScreen.setProcessing(false);
    followJob(jobId);
}

void AppState::followJob(const QString& jobId) {
    auto* client = new SSEClient(m_backend.eventsURL(jobId));
    QPointer<AppState> self(this);
    client->onEvent = [self](const SSEJobEvent& event) {
        if (self)
            self->applyEvent(event.job);
    };
    client->onError = [](const TransportError& error) {
        AppLogger::shared().log(QStringLiteral("SSE : %1").arg(error.message()), LogLevel::warn);
    };
    client->onComplete = [self, jobId, client] {
        client->deleteLater();
        if (self && self->m_screen == AppScreen::processing)
            self->refetchAfterStreamEnd(jobId);
    };
    client->start();
}

void AppState::applyEvent(const StemJob& job) {
    const QString label = JobStatuses::statusLabel(job.status);
    setJobProgress(JobProgress{label, job.progress, job.stage.isEmpty() ? label : job.stage,
                               job.status == JobStatus::done, job.status == JobStatus::error,
                               errorText(job)});
    setCurrentJob(job);
    leaveProcessingFor(job, kLogsHint);
}

bool AppState::leaveProcessingFor(const StemJob& job, const QString& failureSuffix) {
    switch (job.status) {
    case JobStatus::cancelled:
    case JobStatus::stopped:
        setScreen(AppScreen::importing);
        return true;
    case JobStatus::error:
        m_importScreen.setErrorMessage(errorText(job).value_or(kFailed) + failureSuffix);
        setScreen(AppScreen::importing);
        return true;
    case JobStatus::done:
        setScreen(AppScreen::studio);
        return true;
    default:
        return false;
    }
}

QCoro::Task<> AppState::refetchAfterStreamEnd(QString jobId) {
    QPointer<AppState> self(this);
    std::optional<StemJob> fetched;
    try {
        fetched = co_await m_backend.getJob(jobId);
    } catch (const std::exception&) {
        co_return; // the processing screen stays
    }
    if (!self || !fetched)
        co_return;
    setCurrentJob(fetched);
    if (!leaveProcessingFor(*fetched, QString()))
        followJob(jobId); // still running: a new stream
}
