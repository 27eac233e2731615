#pragma once

#include "app/AppScreen.h"
#include "app/ImportScreenState.h"
#include "app/JobProgress.h"
#include "audio/StemKind.h"
#include "engine_client/StemJob.h"

#include <QCoro/QCoroTask>
#include <QObject>
#include <QSet>
#include <chrono>
#include <functional>
#include <optional>

class BackendService;
class PythonRuntimeService;

// The one observable state every screen reads, and the job flow from import to studio.
// Lives on the main thread; every field changes there only.
class AppState : public QObject {
    Q_OBJECT
    Q_PROPERTY(int screen READ screenValue NOTIFY screenChanged)
    Q_PROPERTY(
        bool showImportSheet READ showImportSheet WRITE setShowImportSheet NOTIFY showImportSheetChanged)
    Q_PROPERTY(bool showLibrary READ showLibrary WRITE setShowLibrary NOTIFY showLibraryChanged)
    Q_PROPERTY(bool showSettings READ showSettings WRITE setShowSettings NOTIFY showSettingsChanged)
    Q_PROPERTY(bool isPlaying READ isPlaying WRITE setPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(bool loopEnabled READ loopEnabled WRITE setLoopEnabled NOTIFY loopEnabledChanged)
    Q_PROPERTY(double playheadPosition READ playheadPosition WRITE setPlayheadPosition NOTIFY
                   playheadPositionChanged)
    Q_PROPERTY(double zoomLevel READ zoomLevel WRITE setZoomLevel NOTIFY zoomLevelChanged)
    Q_PROPERTY(bool isSetupComplete READ isSetupComplete WRITE setSetupComplete NOTIFY isSetupCompleteChanged)
    Q_PROPERTY(bool backendReady READ backendReady WRITE setBackendReady NOTIFY backendReadyChanged)
    Q_PROPERTY(int backendPort READ backendPort CONSTANT)

public:
    using Sleep = std::function<QCoro::Task<>(std::chrono::milliseconds)>;

    // `backendPort` is where the engine is launched (8000; tests use a free port).
    AppState(BackendService& backend, PythonRuntimeService& runtime, int backendPort = 8000,
             QObject* parent = nullptr);

    // The engine is installed: a recorded tag whose folder is ready, FFmpeg and ffprobe found.
    static bool isEngineInstalled(const PythonRuntimeService& runtime);
    // The error text of a job: error, error + "\n" + detail when the detail differs, or the detail alone.
    static std::optional<QString> errorText(const StemJob& job);
    // The separable kinds of `selected`, in the engine's order.
    static QList<StemKind> orderedStems(const QSet<StemKind>& selected);

    // Operations.
    void toggleStem(StemKind kind);
    // Replaces the selection (scripts name their stems); an empty set selects the six separable kinds.
    void setSelectedStems(const QSet<StemKind>& kinds);
    void reset();
    // The import action; reports through importScreen() and this state. `droppedFile` is a local path.
    QCoro::Task<> startImport(QString urlText, std::optional<QString> droppedFile);
    void followJob(const QString& jobId);
    // Brings the engine up when the window first shows: adopt, or start and wait for its health.
    QCoro::Task<> startupSequence();
    // Replaces the sleeps of the start-up wait (tests run it on a short clock).
    void setSleep(Sleep sleep) { m_sleep = std::move(sleep); }

    AppScreen screen() const { return m_screen; }
    int screenValue() const { return static_cast<int>(m_screen); }
    bool showImportSheet() const { return m_showImportSheet; }
    bool showLibrary() const { return m_showLibrary; }
    bool showSettings() const { return m_showSettings; }
    const std::optional<StemJob>& currentJob() const { return m_currentJob; }
    const JobProgress& jobProgress() const { return m_jobProgress; }
    const QSet<StemKind>& selectedStems() const { return m_selectedStems; }
    bool isPlaying() const { return m_isPlaying; }
    bool loopEnabled() const { return m_loopEnabled; }
    double loopStart() const { return m_loopStart; }
    double loopEnd() const { return m_loopEnd; }
    double playheadPosition() const { return m_playheadPosition; }
    double zoomLevel() const { return m_zoomLevel; }
    const QList<StemJob>& libraryJobs() const { return m_libraryJobs; }
    bool isSetupComplete() const { return m_isSetupComplete; }
    bool backendReady() const { return m_backendReady; }
    int backendPort() const { return m_backendPort; }
    ImportScreenState& importScreen() { return m_importScreen; }

    void setScreen(AppScreen screen);
    void setShowImportSheet(bool show);
    void setShowLibrary(bool show);
    void setShowSettings(bool show);
    void setCurrentJob(const std::optional<StemJob>& job);
    void setJobProgress(const JobProgress& progress);
    void setPlaying(bool playing);
    void setLoopEnabled(bool enabled);
    void setPlayheadPosition(double seconds);
    void setZoomLevel(double zoom);
    void setLibraryJobs(const QList<StemJob>& jobs);
    void setSetupComplete(bool complete);
    void setBackendReady(bool ready);

Q_SIGNALS:
    void screenChanged();
    void showImportSheetChanged();
    void showLibraryChanged();
    void showSettingsChanged();
    void currentJobChanged();
    void jobProgressChanged();
    void selectedStemsChanged();
    void isPlayingChanged();
    void loopEnabledChanged();
    void playheadPositionChanged();
    void zoomLevelChanged();
    void libraryJobsChanged();
    void isSetupCompleteChanged();
    void backendReadyChanged();

private:
    QCoro::Task<QString> convertToFLAC(QString file);
    void applyEvent(const StemJob& job);
    // Leaves the processing screen for a final status (an error's text, then `failureSuffix`, goes to the
    // import screen); false while the job still runs.
    bool leaveProcessingFor(const StemJob& job, const QString& failureSuffix);
    QCoro::Task<> refetchAfterStreamEnd(QString jobId);
    QCoro::Task<> restartDeadEngine();

    BackendService& m_backend;
    PythonRuntimeService& m_runtime;
    ImportScreenState m_importScreen;
    Sleep m_sleep;

    AppScreen m_screen = AppScreen::setup;
    bool m_showImportSheet = false;
    bool m_showLibrary = false;
    bool m_showSettings = false;
    std::optional<StemJob> m_currentJob;
    JobProgress m_jobProgress;
    QSet<StemKind> m_selectedStems;
    bool m_isPlaying = false;
    bool m_loopEnabled = false;
    double m_loopStart = 0;
    double m_loopEnd = 0;
    double m_playheadPosition = 0;
    double m_zoomLevel = 1.0;
    QList<StemJob> m_libraryJobs;
    bool m_isSetupComplete = false;
    bool m_backendReady = false;
    int m_backendPort = 8000;
};
