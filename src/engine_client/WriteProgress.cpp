#include "engine_client/WriteProgress.h"

void WriteProgress::plan(qint64 finalSize) {
    {
        const std::lock_guard lock(m_mutex);
        m_finalSize = finalSize;
    }
    m_changed.notify_all();
}

bool WriteProgress::advance(qint64 written) {
    {
        const std::lock_guard lock(m_mutex);
        m_written = written;
        if (m_abandoned)
            return false;
    }
    m_changed.notify_all();
    return true;
}

void WriteProgress::finish(bool succeeded) {
    {
        const std::lock_guard lock(m_mutex);
        m_succeeded = succeeded;
    }
    m_changed.notify_all();
}

std::optional<qint64> WriteProgress::waitForPlan() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_finalSize || m_succeeded; });
    if (m_succeeded == false)
        return std::nullopt;
    return m_finalSize;
}

std::optional<qint64> WriteProgress::waitBeyond(qint64 offset) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_written > offset || m_succeeded; });
    if (m_succeeded == false)
        return std::nullopt;
    return m_written;
}

void WriteProgress::abandon() {
    const std::lock_guard lock(m_mutex);
    m_abandoned = true;
}
