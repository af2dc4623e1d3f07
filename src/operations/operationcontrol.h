#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace quillorn {

// Shared between one running operation (a background thread) and whoever watches
// or cancels it. The lock is held only for a single field access, never across a
// call out, so no lock order can arise.
class OperationControl {
public:
    struct Progress {
        std::int64_t completed = 0;
        std::int64_t expected = 0;
        std::string detail;
    };

    void cancel();
    // Throws CancellationError once cancel() has been called.
    void check() const;
    bool isCancelled() const;
    void add(std::int64_t bytes);
    void total(std::int64_t bytes);
    void detail(std::string text);
    Progress progress() const;

private:
    mutable std::mutex m_lock;
    bool m_stopped = false;
    std::int64_t m_completed = 0;
    std::int64_t m_expected = 0;
    std::string m_currentDetail = "Preparing";
};

} // namespace quillorn
