#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace quillorn {

// Shared between one running operation (a background thread) and whoever watches,
// pauses or cancels it. The lock is held only for a single field access, never
// across a call out, so no lock order can arise; check() waits on it only while
// paused, and a cancel ends that wait.
class OperationControl {
public:
    struct Progress {
        std::int64_t completed = 0;
        std::int64_t expected = 0;
        std::string detail;
    };

    void cancel();
    // Throws CancellationError once cancel() has been called. While the operation
    // is paused, waits here (at its next chunk or item) until resumed or cancelled.
    void check() const;
    bool isCancelled() const;
    // The worker holds still at its next check() until resume(); what it has
    // open (a staging item, its place in the queue) stays as it is.
    void pause();
    void resume();
    bool isPaused() const;
    void add(std::int64_t bytes);
    void total(std::int64_t bytes);
    void detail(std::string text);
    Progress progress() const;

private:
    mutable std::mutex m_lock;
    mutable std::condition_variable m_unpaused;
    bool m_stopped = false;
    bool m_paused = false;
    std::int64_t m_completed = 0;
    std::int64_t m_expected = 0;
    std::string m_currentDetail = "Preparing";
};

} // namespace quillorn
