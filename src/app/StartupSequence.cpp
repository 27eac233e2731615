// AppState: bringing the engine up when the window first shows.
#include "AppState.h"

#include "engine_client/BackendService.h"
#include "runtime/PythonRuntimeService.h"

#include <QPointer>
#include <QtConcurrent>

using namespace std::chrono_literals;

namespace {
constexpr int kAttempts = 90;
constexpr int kRestartAttempt = 45;
} // namespace

QCoro::Task<> AppState::restartDeadEngine() {
    co_await m_runtime.stopBackend();
    co_await m_sleep(500ms);
    const int port = m_runtime.port();
    co_await m_runtime.startBackend(port);
}

QCoro::Task<> AppState::startupSequence() {
    QPointer<AppState> self(this);
    if (!isEngineInstalled(m_runtime)) {
        setSetupComplete(false);
        setScreen(AppScreen::setup);
        co_return;
    }
    const bool adopted = co_await m_backend.isReady();
    if (!self)
        co_return;
    if (adopted) {
        setBackendReady(true);
        co_return;
    }
    co_await m_runtime.startBackend(m_backendPort);
    for (int attempt = 1;; ++attempt) {
        co_await m_sleep(1s);
        if (!self)
            co_return;
        const std::optional<BackendHealth> health = co_await m_backend.health();
        if (!self)
            co_return;
        if (health) {
            m_runtime.setRunningVersion(health->version);
            if (health->status == QLatin1String("ok")) {
                setBackendReady(true);
                co_return;
            }
        }
        if (attempt == kAttempts)
            break;
        if (attempt == kRestartAttempt && !m_runtime.isRunning())
            restartDeadEngine(); // runs beside the wait; the count goes on
    }
    m_runtime.log(
        QStringLiteral("⚠️ Backend non disponible après 90 s — voir Réglages › Diagnostic"));
}
