#pragma once

#include "ComponentInfo.h"
#include "InstallLayout.h"
#include "ManifestStore.h"
#include "SystemTools.h"
#include "ToolSources.h"
#include "UpdateOutcome.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QPointer>
#include <QProcessEnvironment>
#include <QStringDecoder>
#include <QThread>
#include <functional>
#include <mutex>
#include <optional>

class QFile;
class QProcess;

// The engine runtime: the install and its manifest, the engine child process and the runtime log.
// Observable fields change only on the thread the service lives on (the main thread).
class PythonRuntimeService : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRunning READ isRunning NOTIFY isRunningChanged)
    Q_PROPERTY(QString setupLog READ setupLog NOTIFY setupLogChanged)
    Q_PROPERTY(QList<ComponentInfo> components READ components NOTIFY componentsChanged)
    Q_PROPERTY(bool isBusy READ isBusy NOTIFY isBusyChanged)
    Q_PROPERTY(bool needsRestart READ needsRestart NOTIFY needsRestartChanged)
    Q_PROPERTY(QString runningVersion READ runningVersionText NOTIFY runningVersionChanged)

public:
    struct Config {
        InstallLayout::Config layout;
        QString settingsFile;                // empty: the user's settings store
        QProcessEnvironment baseEnvironment; // what child environments start from
        QString homeDir;
        QString userName;
        qint64 parentPid = 0;
        ToolSources tools = ToolSources::fromEnvironment(); // where tools are downloaded from
        SystemTools systemTools;                            // compiler, administrator launcher, …
    };
    static Config defaultConfig();
    static PythonRuntimeService& shared();

    explicit PythonRuntimeService(Config config = defaultConfig(), QObject* parent = nullptr);
    ~PythonRuntimeService() override;

    // Install layout and manifest.
    const InstallLayout& layout() const { return m_layout; }
    QString supportURL(const QString& name) const { return m_layout.supportURL(name); }
    bool isBackendInstalled(const QString& tag) const { return m_layout.isBackendInstalled(tag); }
    std::optional<QString> ffmpegPath() const { return m_layout.ffmpegPath(); }
    std::optional<QString> ffprobePath() const { return m_layout.ffprobePath(); }
    InstallManifest& manifest() { return m_manifest.manifest(); }
    const InstallManifest& manifest() const { return m_manifest.manifest(); }
    void loadManifest() { m_manifest.load(); }
    void saveManifest() { m_manifest.save(); }
    void reconcileManifest() { m_manifest.reconcile(); }
    // Records `tag` as the installed engine, built without the `skipped` packages, and saves the manifest.
    void recordInstalledBackend(const QString& tag, const QStringList& skipped);
    // Removes every engine folder but the manifest's tag and the running one.
    void purgeOldBackends();
    void migrateLegacyInstall();

    // Child environments.
    QProcessEnvironment cleanEnvironment() const;
    QProcessEnvironment backendEnvironment() const; // for the manifest's tag; settings read now
    QProcessEnvironment backendEnvironment(const QString& tag) const;

    // "[Halvorn] {line}" on standard output, the line in the application log and in setupLog.
    void log(const QString& line);

    // Receives detail lines of an install or update step.
    using Report = std::function<void(const QString& detail)>;

    // The engine process.
    QCoro::Task<> startBackend(int port);
    QCoro::Task<> stopBackend();
    QCoro::Task<> restartBackend();
    void stopBackendBlocking(); // at exit: the same steps, waiting on the calling thread
    // Whether the engine launched by this service runs `tag`.
    bool isRunningTag(const QString& tag) const { return m_isRunning && m_runningTag == tag; }
    // Runs the engine's model warm-up and records its outcome in the manifest; throws SetupError.
    // `report` receives the warm-up's output lines.
    QCoro::Task<> warmUpModels(Report report);
    QCoro::Task<> warmUpModels() { return warmUpModels(Report{}); }

    // Tool provisioning. Each installer throws SetupError; `report` receives its detail lines.
    QCoro::Task<> installFFmpeg(Report report);
    QCoro::Task<> installFpcalc(Report report);
    QCoro::Task<> installQuickJS(Report report);
    QCoro::Task<> installUV(Report report); // installs uv, or updates it to the latest release
    QCoro::Task<> installPython(Report report);
    QProcessEnvironment uvEnvironment() const; // cleanEnvironment() plus uv's folders and options
    const ToolSources& toolSources() const { return m_config.tools; }
    // Latest published versions; nothing when the lookup fails.
    QCoro::Task<std::optional<QString>> latestRelease(QString repo) const;
    QCoro::Task<std::optional<QString>> latestPyPIVersion(QString package) const;

    // Engine source install and build tools.
    const QString& engineRepository() const { return m_config.tools.engineRepository; }
    // Installs the engine of release `tag` from its source archive (`force` reinstalls an installed tag);
    // true when it installed, false when the tag was already there. Throws SetupError.
    QCoro::Task<bool> installBackend(QString tag, bool force, Report report);
    // The first line of the compiler's "--version", when a working C compiler answers.
    QCoro::Task<std::optional<QString>> compilerDescription() const;
    QCoro::Task<bool> hasCompiler() const;
    // Whether a compiler is present after this call, installing the build tools when allowed.
    QCoro::Task<bool> ensureCompilerTools(bool allowInstall, Report report);
    // Runs `command` through the shell with administrator rights. Throws AdminCommandCancelled when the
    // user dismissed the password dialog, SetupError for any other failure.
    QCoro::Task<> runAdminCommand(QString command, QString prompt);
    // Upgrades yt-dlp in the engine's environment; `report` receives uv's output lines. Throws SetupError.
    QCoro::Task<> updateYtDlp(Report report);
    QCoro::Task<> updateYtDlp() { return updateYtDlp(Report{}); }
    QCoro::Task<std::optional<QString>> ytDlpVersion() const;

    // Component updates. One install or update operation at a time.
    bool tryBeginOperation();
    void endOperation();
    // Recomputes the components list row by row; `online` adds the latest published versions.
    QCoro::Task<> refreshComponents(bool online);
    // Brings every component up to date; `log` receives the progress lines (also in the runtime log).
    QCoro::Task<UpdateOutcome> updateAll(Report log);
    // Consents to the compiler tools, installs them, and completes an engine installed without its
    // optional packages. False when another operation was running.
    QCoro::Task<bool> enableCompilerTools(Report log);
    void setComponentState(ComponentID id, const ComponentInfo::State& state);
    void setComponent(const ComponentInfo& row);

    // First-run setup. Reports and the completion arrive on the service's thread.
    using SetupProgress = std::function<void(const QString& title, const QString& detail, double fraction)>;
    using SetupCompletion = std::function<void(const std::optional<QString>& error)>;
    // Starts the setup pipeline and returns at once; `completion` is called once, with the failure's
    // message when a required step failed.
    void runSetup(SetupProgress progress, SetupCompletion completion);
    // An engine tag is recorded, backends/ exists or uv is installed.
    bool hasPreviousInstall() const;

    bool isRunning() const { return m_isRunning; }
    const QString& setupLog() const { return m_setupLog; }
    const QList<ComponentInfo>& components() const { return m_components; }
    bool isBusy() const { return m_isBusy; }
    bool needsRestart() const { return m_needsRestart; }
    const std::optional<QString>& runningVersion() const { return m_runningVersion; }
    QString runningVersionText() const { return m_runningVersion.value_or(QString()); }
    const std::optional<QString>& runningTag() const { return m_runningTag; }
    int port() const { return m_port; }
    qint64 backendPid() const; // 0 when no engine was launched

    void setComponents(const QList<ComponentInfo>& components);
    void setBusy(bool busy); // the operation mark and its observable twin
    void setNeedsRestart(bool needsRestart);
    void setRunningVersion(const std::optional<QString>& version);

    static constexpr qsizetype setupLogLimit = 200000;
    static constexpr qsizetype setupLogKept = 100000;

Q_SIGNALS:
    void isRunningChanged();
    void setupLogChanged();
    void componentsChanged();
    void isBusyChanged();
    void needsRestartChanged();
    void runningVersionChanged();

private:
    void appendSetupLog(const QString& text);
    void setRunning(bool running);
    void handleEngineOutput(QProcess* process);
    void handleEngineExit(QProcess* process);
    void forgetProcess();
    template <typename F> void onOwnThread(F&& work);
    void publishBusy(bool busy);
    QCoro::Task<> setupPipeline(SetupProgress progress, SetupCompletion completion);
    QCoro::Task<> setupSteps(SetupProgress report);
    QCoro::Task<ComponentInfo> componentRow(ComponentID id, bool online);
    QCoro::Task<ComponentInfo::State> updateComponent(ComponentID id, Report log, bool* installedNewEngine);
    QCoro::Task<> updateEngine(Report log, bool* installedNewEngine);
    QCoro::Task<> syncEngine(QString tag, QString folder, QStringList skipped);

    Config m_config;
    InstallLayout m_layout;
    ManifestStore m_manifest;

    bool m_isRunning = false;
    QString m_setupLog;
    QList<ComponentInfo> m_components = ComponentInfo::initialRows();
    bool m_isBusy = false;
    bool m_needsRestart = false;
    std::optional<QString> m_runningVersion;

    QPointer<QProcess> m_process;
    QFile* m_backendLog = nullptr;
    QStringDecoder m_outputDecoder{QStringDecoder::Utf8};
    std::optional<QString> m_runningTag;
    int m_port = 8000;

    std::mutex m_opLock; // guards m_busy, and the manifest fields written at the end of an operation
    bool m_busy = false;
};

template <typename F> void PythonRuntimeService::onOwnThread(F&& work) {
    if (QThread::currentThread() == thread())
        work();
    else
        QMetaObject::invokeMethod(this, std::forward<F>(work), Qt::QueuedConnection);
}
