#pragma once

#include "GitHubAsset.h"
#include "GitHubRelease.h"
#include "UpdaterConfig.h"
#include "UpdaterState.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <memory>
#include <optional>

// Keeps Marlune up to date from the releases of its own GitHub repository: checks the latest release,
// downloads its AppImage, swaps it for the running one and relaunches. Lives on the main thread; every
// change of its observable fields happens there.
class UpdaterService : public QObject {
    Q_OBJECT
    Q_PROPERTY(UpdaterState state READ state WRITE setState NOTIFY stateChanged)
    Q_PROPERTY(QString releaseNotes READ releaseNotes NOTIFY releaseNotesChanged)
    Q_PROPERTY(QString latestVersion READ latestVersion NOTIFY latestVersionChanged)

public:
    explicit UpdaterService(UpdaterConfig config = UpdaterConfig::fromBuild(), QObject* parent = nullptr);
    ~UpdaterService() override;

    // The configured repository, or nothing when it is empty or names the engine's own repository.
    static std::optional<QString> validRepo(const QString& configured);
    // The AppImage to download: the first Linux x86_64 one, else the first AppImage, else nothing.
    static std::optional<GitHubAsset> chooseAsset(const GitHubRelease& release);

    const UpdaterState& state() const { return m_state; }
    // Any screen may set the state back to idle (the update banner's close button does).
    void setState(const UpdaterState& state);
    const QString& releaseNotes() const { return m_releaseNotes; }
    const QString& latestVersion() const { return m_latestVersion; }
    const std::optional<QString>& repo() const { return m_repo; }
    const QString& apiBase() const { return m_config.apiBase; }
    const QString& currentVersion() const { return m_config.currentVersion; }
    // Whether the check started by checkForUpdates is still running.
    bool isCheckRunning() const;

    // Starts a background check in place of the previous one, whose request is abandoned. No-op without repo.
    void checkForUpdates();
    // The whole check: asks for the latest release and sets latestVersion, releaseNotes and the state.
    QCoro::Task<> performCheck();
    // Starts downloading and installing the release's AppImage and returns at once; progress and outcome
    // arrive through the state. Ignored while an installation runs.
    void downloadAndInstall(const GitHubRelease& release);
    // The same, awaitable: ends when the state has reached its outcome.
    QCoro::Task<> installRelease(GitHubRelease release);
    // Starts the (new) AppImage detached, then quits the application.
    void restartApp();

Q_SIGNALS:
    void stateChanged(const UpdaterState& state);
    void releaseNotesChanged();
    void latestVersionChanged();

private:
    struct CheckTicket;

    QCoro::Task<> runCheck(std::shared_ptr<CheckTicket> ticket);
    void applyRelease(const GitHubRelease& release);
    void fail(const QString& message);
    void reportProgress(qint64 received, qint64 total, qint64 assetSize);
    QString appImagePath() const;

    UpdaterConfig m_config;
    std::optional<QString> m_repo;
    UpdaterState m_state;
    QString m_releaseNotes;
    QString m_latestVersion;
    quint64 m_stateSerial = 0; // counts state changes, so a delayed reset knows whether it is stale
    std::optional<QCoro::Task<>> m_checkTask;
    std::shared_ptr<CheckTicket> m_checkTicket;
    bool m_installRunning = false;
};
