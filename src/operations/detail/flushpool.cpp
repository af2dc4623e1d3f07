#include "operations/detail/flushpool.h"

#include <algorithm>

namespace quillorn::detail {

FlushPool::FlushPool(const FileOperations::FileManager &manager, unsigned threads)
    : m_manager(manager), m_maximumThreads(threads), m_maximumPending(std::max<std::size_t>(64, threads))
{
}

FlushPool::~FlushPool()
{
    {
        std::lock_guard guard(m_lock);
        m_stopping = true;
        m_pending.clear();
    }
    m_work.notify_all();
    for (std::thread &thread : m_threads)
        thread.join();
}

void FlushPool::submit(FileDescriptor descriptor, std::filesystem::path shown)
{
    std::unique_lock guard(m_lock);
    m_room.wait(guard, [this] { return m_pending.size() < m_maximumPending || m_failure; });
    if (m_failure)
        std::rethrow_exception(m_failure); // the item fails anyway: stop copying now
    m_pending.emplace_back(std::move(descriptor), std::move(shown));
    // Started as the work comes, so a folder of two files does not start them all.
    if (m_waiting < m_pending.size() && m_threads.size() < m_maximumThreads)
        m_threads.emplace_back([this] { run(); });
    m_work.notify_one();
}

void FlushPool::finish()
{
    std::unique_lock guard(m_lock);
    m_idle.wait(guard, [this] { return (m_pending.empty() && m_busy == 0) || m_failure; });
    if (m_failure)
        std::rethrow_exception(m_failure);
}

bool FlushPool::finishWithin(std::chrono::milliseconds patience)
{
    std::unique_lock guard(m_lock);
    const bool done =
        m_idle.wait_for(guard, patience, [this] { return (m_pending.empty() && m_busy == 0) || m_failure; });
    if (m_failure)
        std::rethrow_exception(m_failure);
    return done;
}

void FlushPool::run()
{
    for (;;) {
        std::pair<FileDescriptor, std::filesystem::path> next;
        {
            std::unique_lock guard(m_lock);
            ++m_waiting;
            m_work.wait(guard, [this] { return m_stopping || !m_pending.empty(); });
            --m_waiting;
            if (m_stopping)
                return;
            next = std::move(m_pending.front());
            m_pending.pop_front();
            ++m_busy;
            m_room.notify_one();
        }
        std::exception_ptr failure;
        try {
            m_manager.flush(next.first.get(), next.second);
        } catch (...) {
            failure = std::current_exception();
        }
        next.first = FileDescriptor();
        {
            std::lock_guard guard(m_lock);
            --m_busy;
            if (failure && !m_failure)
                m_failure = failure;
        }
        m_room.notify_all();
        m_idle.notify_all();
    }
}

} // namespace quillorn::detail
