#pragma once

#include <QtGlobal>
#include <condition_variable>
#include <mutex>
#include <optional>

// How far a file being written has got, shared by the thread that writes it and one that reads behind it:
// the writer announces the final size, then each new total, then whether it finished; the reader waits for
// bytes it has not read yet, and may abandon the file so that the writer stops.
class WriteProgress {
public:
    // Writer side.
    void plan(qint64 finalSize);
    // False once the reader has abandoned the file.
    bool advance(qint64 written);
    void finish(bool succeeded);

    // Reader side. The final size, or none when the writer failed before knowing it.
    std::optional<qint64> waitForPlan();
    // Blocks until more than `offset` bytes are written or the writer has finished; returns the bytes
    // written, or none when the writer failed.
    std::optional<qint64> waitBeyond(qint64 offset);
    void abandon();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::optional<qint64> m_finalSize;
    qint64 m_written = 0;
    std::optional<bool> m_succeeded; // set when the writer has finished
    bool m_abandoned = false;
};
