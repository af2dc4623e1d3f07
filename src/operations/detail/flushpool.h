#pragma once

#include "operations/fileoperations.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace quillorn::detail {

// Flushes the files and folders of one copied item on several threads while the
// copy goes on, where each must be flushed on its own (FUSE and network
// volumes, or a local volume that other programs keep busy): daemons, servers
// and journals work on many requests at once, so the flushes overlap instead of
// queueing one behind the other. Each descriptor is closed once flushed.
// finish() waits for all of them and throws the first failure; without finish()
// (the copy failed anyway) the rest is dropped.
class FlushPool {
public:
    // Starts up to `threads` threads, as the work comes.
    FlushPool(const FileOperations::FileManager &manager, unsigned threads);
    ~FlushPool();
    FlushPool(const FlushPool &) = delete;
    FlushPool &operator=(const FlushPool &) = delete;

    // Waits while too many descriptors are pending, so a big tree never holds
    // more than a bounded number open.
    void submit(FileDescriptor descriptor, std::filesystem::path shown);
    void finish();
    // As finish(), but gives up after `patience`: false when work is left.
    bool finishWithin(std::chrono::milliseconds patience);

private:
    void run();

    const FileOperations::FileManager &m_manager;
    const std::size_t m_maximumThreads;
    // As many as there are threads, so none waits for work while the copy goes on.
    const std::size_t m_maximumPending;
    std::size_t m_waiting = 0; // threads waiting for work
    std::mutex m_lock;
    std::condition_variable m_work, m_room, m_idle;
    std::deque<std::pair<FileDescriptor, std::filesystem::path>> m_pending;
    std::size_t m_busy = 0;
    bool m_stopping = false;
    std::exception_ptr m_failure;
    std::vector<std::thread> m_threads;
};

} // namespace quillorn::detail
