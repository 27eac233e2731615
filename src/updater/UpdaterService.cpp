#include "UpdaterService.h"

#include "AppImageReplacer.h"
#include "FileDigest.h"
#include "FileDownload.h"
#include "NetworkErrorText.h"
#include "SharedNetworkAccess.h"
#include "VersionComparison.h"
#include "log/AppLogger.h"
#include "platform/UserError.h"

#include <QCoro/QCoroFuture>
#include <QCoro/QCoroNetworkReply>
#include <QFile>
#include <QFileInfo>
#include <QNetworkReply>
#include <QPointer>
#include <QProcess>
#include <QScopeGuard>
#include <QThread>
#include <QTimer>
#include <QtConcurrent>
#include <algorithm>
#include <filesystem>

// The check started by checkForUpdates; a newer one abandons it and aborts its request.
struct UpdaterService::CheckTicket {
    bool abandoned = false;
    QPointer<QNetworkReply> reply;
};

namespace {

constexpr int kRequestTimeoutMs = 60000;

// An absolute address, or an empty one when the text does not parse as such.
QUrl parseAddress(const QString& text) {
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative())
        return QUrl();
    return url;
}

// Errors that stand for an HTTP status (the server did answer) rather than a transport failure.
bool isHttpStatusError(QNetworkReply::NetworkError error) {
    return (error >= QNetworkReply::ContentAccessDenied && error <= QNetworkReply::UnknownContentError) ||
           (error >= QNetworkReply::InternalServerError && error <= QNetworkReply::UnknownServerError);
}

// Renames the download to the asset's file name in the temporary folder, when that is possible and does
// not touch the running AppImage; yields where the file now is.
QString moveToAssetName(const QString& downloaded, const QString& assetName, const QString& appImage) {
    const QString fileName = QFileInfo(assetName).fileName();
    if (fileName.isEmpty() || fileName == QLatin1String(".") || fileName == QLatin1String(".."))
        return downloaded;
    const QString target = QFileInfo(downloaded).absolutePath() + QLatin1Char('/') + fileName;
    if (QFileInfo(target).absoluteFilePath() == QFileInfo(appImage).absoluteFilePath())
        return downloaded;
    std::error_code error;
    std::filesystem::rename(QFile::encodeName(downloaded).toStdString(),
                            QFile::encodeName(target).toStdString(), error);
    return error ? downloaded : target;
}

// Blocking: verifies the download, then swaps it for the running AppImage. Yields the failure, if any.
std::optional<QString> installDownloaded(const QString& file, const GitHubAsset& asset,
                                         const QString& appImage) {
    if (asset.digest && !FileDigest::matches(file, *asset.digest)) {
        QFile::remove(file);
        return QStringLiteral("Somme de contrôle invalide pour %1").arg(asset.name);
    }
    QFile::setPermissions(file, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                                    QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                    QFileDevice::ExeOther);
    if (const auto reason = AppImageReplacer::replace(appImage, file))
        return QStringLiteral("Remplacement échoué : %1").arg(*reason);
    QFile::remove(file);
    return std::nullopt;
}

} // namespace

UpdaterService::UpdaterService(UpdaterConfig config, QObject* parent)
    : QObject(parent)
    , m_config(std::move(config))
    , m_repo(validRepo(m_config.repo)) {}

UpdaterService::~UpdaterService() {
    if (m_checkTicket) {
        m_checkTicket->abandoned = true;
        if (m_checkTicket->reply)
            m_checkTicket->reply->abort();
    }
}

std::optional<QString> UpdaterService::validRepo(const QString& configured) {
    if (configured.isEmpty() || configured.toLower() == QLatin1String("halvornapp/halvorn"))
        return std::nullopt;
    return configured;
}

std::optional<GitHubAsset> UpdaterService::chooseAsset(const GitHubRelease& release) {
    const QString suffix = QStringLiteral(".AppImage");
    for (const GitHubAsset& asset : release.assets) {
        const QString lower = asset.name.toLower();
        if (lower.contains(QLatin1String("linux")) && lower.contains(QLatin1String("x86_64")) &&
            asset.name.endsWith(suffix))
            return asset;
    }
    for (const GitHubAsset& asset : release.assets)
        if (asset.name.endsWith(suffix))
            return asset;
    return std::nullopt;
}

void UpdaterService::setState(const UpdaterState& state) {
    Q_ASSERT(QThread::currentThread() == thread());
    ++m_stateSerial;
    if (state == m_state)
        return;
    m_state = state;
    Q_EMIT stateChanged(m_state);
}

bool UpdaterService::isCheckRunning() const {
    return m_checkTask && !m_checkTask->isReady();
}

void UpdaterService::checkForUpdates() {
    if (!m_repo)
        return;
    if (m_checkTicket) {
        m_checkTicket->abandoned = true;
        if (m_checkTicket->reply)
            m_checkTicket->reply->abort();
    }
    m_checkTicket = std::make_shared<CheckTicket>();
    m_checkTask.emplace(runCheck(m_checkTicket));
}

QCoro::Task<> UpdaterService::performCheck() {
    QCoro::Task<> check = runCheck(nullptr); // no temporaries inside co_await (g++ 12)
    co_await check;
}

QCoro::Task<> UpdaterService::runCheck(std::shared_ptr<CheckTicket> ticket) {
    if (!m_repo) {
        setState(UpdaterState::idle());
        co_return;
    }
    setState(UpdaterState::checking());
    const QUrl url = parseAddress(m_config.apiBase + QStringLiteral("/repos/") + *m_repo +
                                  QStringLiteral("/releases/latest"));
    if (url.isEmpty()) {
        fail(QStringLiteral("URL non prise en charge"));
        co_return;
    }
    QNetworkRequest request(url);
    request.setTransferTimeout(kRequestTimeoutMs);
    request.setRawHeader("Accept", "application/vnd.github+json");
    request.setRawHeader("X-GitHub-Api-Version", "2022-11-28");
    request.setRawHeader("User-Agent", QStringLiteral("Marlune/%1").arg(m_config.currentVersion).toUtf8());

    QPointer<UpdaterService> self(this);
    QNetworkReply* reply = sharedNetworkAccess().get(request);
    const auto disposeReply = qScopeGuard([reply] { reply->deleteLater(); });
    if (ticket)
        ticket->reply = reply;
    QCoro::Task<bool> finished = qCoro(reply).waitForFinished();
    co_await finished;
    if (!self || (ticket && ticket->abandoned))
        co_return;
    if (reply->error() != QNetworkReply::NoError && !isHttpStatusError(reply->error())) {
        fail(networkErrorText(*reply));
        co_return;
    }
    try {
        applyRelease(GitHubRelease::decode(reply->readAll()));
    } catch (const UserError& error) {
        fail(error.message());
    }
}

void UpdaterService::applyRelease(const GitHubRelease& release) {
    const QString version = release.version();
    if (version != m_latestVersion) {
        m_latestVersion = version;
        Q_EMIT latestVersionChanged();
    }
    if (release.body != m_releaseNotes) {
        m_releaseNotes = release.body;
        Q_EMIT releaseNotesChanged();
    }
    if (VersionComparison::isNewer(m_latestVersion, m_config.currentVersion)) {
        AppLogger::shared().log(QStringLiteral("Marlune %1 disponible").arg(m_latestVersion), LogLevel::info);
        setState(UpdaterState::updateAvailable(release));
        return;
    }
    setState(UpdaterState::upToDate());
    const quint64 serial = m_stateSerial;
    QTimer::singleShot(m_config.upToDateDelay, this, [this, serial] {
        if (m_stateSerial == serial)
            setState(UpdaterState::idle());
    });
}

void UpdaterService::fail(const QString& message) {
    AppLogger::shared().log(QStringLiteral("Mise à jour de Marlune : %1").arg(message), LogLevel::error);
    setState(UpdaterState::error(message));
}

void UpdaterService::downloadAndInstall(const GitHubRelease& release) {
    installRelease(release); // runs on by itself; its outcome arrives through the state
}

QCoro::Task<> UpdaterService::installRelease(GitHubRelease release) {
    if (m_installRunning)
        co_return;
    const auto asset = chooseAsset(release);
    if (!asset) {
        fail(QStringLiteral("Aucun fichier AppImage compatible trouvé."));
        co_return;
    }
    const QUrl url = parseAddress(asset->browserDownloadURL);
    if (url.isEmpty()) {
        fail(QStringLiteral("URL invalide."));
        co_return;
    }
    const QString appImage = appImagePath();
    if (appImage.isEmpty()) {
        fail(QStringLiteral("Mise à jour automatique disponible uniquement pour l'AppImage."));
        co_return;
    }

    QPointer<UpdaterService> self(this);
    m_installRunning = true;
    setState(UpdaterState::downloading(0));
    // Arguments built beforehand: g++ 12 destroys temporaries of a co_await expression twice.
    const std::function<void(qint64, qint64)> onProgress = [self, size = asset->size](qint64 received,
                                                                                      qint64 total) {
        if (self)
            self->reportProgress(received, total, size);
    };
    const QString folder = m_config.temporaryDir;
    QString downloaded;
    try {
        downloaded = co_await downloadToFile(sharedNetworkAccess(), url, folder, onProgress);
    } catch (const UserError& error) {
        if (self) {
            m_installRunning = false;
            fail(error.message());
        }
        co_return;
    }
    if (!self) {
        QFile::remove(downloaded);
        co_return;
    }

    setState(UpdaterState::installing());
    const QString file = moveToAssetName(downloaded, asset->name, appImage);
    QFuture<std::optional<QString>> installing = QtConcurrent::run(installDownloaded, file, *asset, appImage);
    const std::optional<QString> failure = co_await installing;
    if (!self)
        co_return;
    m_installRunning = false;
    if (failure) {
        fail(*failure);
        co_return;
    }
    AppLogger::shared().log(
        QStringLiteral("Marlune %1 installé — redémarrage nécessaire").arg(release.version()), LogLevel::ok);
    setState(UpdaterState::readyToRestart());
}

void UpdaterService::reportProgress(qint64 received, qint64 total, qint64 assetSize) {
    const qint64 expected = total > 0 ? total : assetSize;
    if (expected <= 0)
        return;
    setState(UpdaterState::downloading(std::clamp(double(received) / double(expected), 0.0, 1.0)));
}

void UpdaterService::restartApp() {
    const QString appImage = appImagePath();
    if (!appImage.isEmpty())
        QProcess::startDetached(appImage, QStringList());
    if (m_config.quitApplication)
        m_config.quitApplication();
}

QString UpdaterService::appImagePath() const {
    return m_config.appImagePath.value_or(qEnvironmentVariable("APPIMAGE"));
}
