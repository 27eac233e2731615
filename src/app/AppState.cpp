#include "AppState.h"

#include "runtime/PythonRuntimeService.h"

#include <QCoro/QCoroTimer>

namespace {
template <typename T, typename Signal>
void assign(AppState* state, T& field, const T& value, Signal changed) {
    if (field == value)
        return;
    field = value;
    Q_EMIT(state->*changed)();
}
} // namespace

AppState::AppState(BackendService& backend, PythonRuntimeService& runtime, int backendPort, QObject* parent)
    : QObject(parent)
    , m_backend(backend)
    , m_runtime(runtime)
    , m_sleep([](std::chrono::milliseconds duration) { return QCoro::sleepFor(duration); }) {
    m_backendPort = backendPort;
    const QList<StemKind> separable = StemKinds::separable();
    m_selectedStems = QSet<StemKind>(separable.cbegin(), separable.cend());
    m_isSetupComplete = isEngineInstalled(runtime);
    m_screen = m_isSetupComplete ? AppScreen::importing : AppScreen::setup;
}

bool AppState::isEngineInstalled(const PythonRuntimeService& runtime) {
    const auto& tag = runtime.manifest().backendTag;
    return tag && runtime.isBackendInstalled(*tag) && runtime.ffmpegPath() && runtime.ffprobePath();
}

std::optional<QString> AppState::errorText(const StemJob& job) {
    if (!job.error)
        return job.errorDetail;
    if (job.errorDetail && !job.errorDetail->isEmpty() && *job.errorDetail != *job.error)
        return *job.error + QLatin1Char('\n') + *job.errorDetail;
    return job.error;
}

QList<StemKind> AppState::orderedStems(const QSet<StemKind>& selected) {
    QList<StemKind> stems;
    for (StemKind kind : StemKinds::separable())
        if (selected.contains(kind))
            stems.append(kind);
    return stems;
}

void AppState::toggleStem(StemKind kind) {
    const QList<StemKind> separable = StemKinds::separable();
    const QSet<StemKind> all(separable.cbegin(), separable.cend());
    if (m_selectedStems == all) {
        m_selectedStems = {kind};
    } else if (m_selectedStems.contains(kind)) {
        m_selectedStems.remove(kind);
        if (m_selectedStems.isEmpty())
            m_selectedStems = all;
    } else {
        m_selectedStems.insert(kind);
    }
    Q_EMIT selectedStemsChanged();
}

void AppState::setSelectedStems(const QSet<StemKind>& kinds) {
    const QList<StemKind> separable = StemKinds::separable();
    QSet<StemKind> selection;
    for (StemKind kind : kinds)
        if (separable.contains(kind))
            selection.insert(kind);
    if (selection.isEmpty())
        selection = QSet<StemKind>(separable.cbegin(), separable.cend());
    assign(this, m_selectedStems, selection, &AppState::selectedStemsChanged);
}

void AppState::reset() {
    setCurrentJob(std::nullopt);
    setJobProgress(JobProgress{});
    setPlaying(false);
    setLoopEnabled(false);
    setPlayheadPosition(0);
    setZoomLevel(1.0);
    setScreen(AppScreen::importing);
}

void AppState::setScreen(AppScreen screen) {
    assign(this, m_screen, screen, &AppState::screenChanged);
}
void AppState::setShowImportSheet(bool show) {
    assign(this, m_showImportSheet, show, &AppState::showImportSheetChanged);
}
void AppState::setShowLibrary(bool show) {
    assign(this, m_showLibrary, show, &AppState::showLibraryChanged);
}
void AppState::setShowSettings(bool show) {
    assign(this, m_showSettings, show, &AppState::showSettingsChanged);
}
void AppState::setCurrentJob(const std::optional<StemJob>& job) {
    assign(this, m_currentJob, job, &AppState::currentJobChanged);
}
void AppState::setJobProgress(const JobProgress& progress) {
    assign(this, m_jobProgress, progress, &AppState::jobProgressChanged);
}
void AppState::setPlaying(bool playing) {
    assign(this, m_isPlaying, playing, &AppState::isPlayingChanged);
}
void AppState::setLoopEnabled(bool enabled) {
    assign(this, m_loopEnabled, enabled, &AppState::loopEnabledChanged);
}
void AppState::setPlayheadPosition(double seconds) {
    assign(this, m_playheadPosition, seconds, &AppState::playheadPositionChanged);
}
void AppState::setZoomLevel(double zoom) {
    assign(this, m_zoomLevel, zoom, &AppState::zoomLevelChanged);
}
void AppState::setLibraryJobs(const QList<StemJob>& jobs) {
    assign(this, m_libraryJobs, jobs, &AppState::libraryJobsChanged);
}
void AppState::setSetupComplete(bool complete) {
    assign(this, m_isSetupComplete, complete, &AppState::isSetupCompleteChanged);
}
void AppState::setBackendReady(bool ready) {
    assign(this, m_backendReady, ready, &AppState::backendReadyChanged);
}
