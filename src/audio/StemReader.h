#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class StemVoice;

// The thread that streams every stem from disk: it pumps each voice in turn (decode a chunk, fill its
// ring) and naps briefly when there is nothing to do.
class StemReader {
public:
    StemReader() = default;
    ~StemReader();

    StemReader(const StemReader&) = delete;
    StemReader& operator=(const StemReader&) = delete;

    void start(std::vector<StemVoice*> voices);
    void stop();
    bool isRunning() const { return m_thread.joinable(); }

    // Asks for a pump round now (after a voice was scheduled).
    void wake();
    // Returns once `ready()` holds (checked after each round of work), or false after `timeout`.
    bool waitUntil(const std::function<bool()>& ready, std::chrono::milliseconds timeout);

private:
    void run();

    std::vector<StemVoice*> m_voices;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wakeUp;
    std::condition_variable m_progress;
    bool m_stopRequested = false;
    bool m_woken = false;
};
