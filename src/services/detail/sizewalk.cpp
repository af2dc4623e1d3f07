#include "services/detail/sizewalk.h"

#include "operations/operationcontrol.h"
#include "platform/posix/treewalk.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>

namespace quillorn::detail {

namespace {

using Clock = std::chrono::steady_clock;

// Entries between two looks at the control, the clock and the shared totals.
constexpr unsigned checkEvery = 128;

struct LinkKey {
    std::uint64_t device;
    std::uint64_t inode;
    friend bool operator==(const LinkKey &, const LinkKey &) = default;
};

struct LinkKeyHash {
    std::size_t operator()(const LinkKey &key) const
    {
        return std::hash<std::uint64_t>()(key.inode ^ (key.device * 0x9E3779B97F4A7C15ULL));
    }
};

// One requested folder's tally, added to by every worker that walks a part of it.
struct Tally {
    std::atomic<std::int64_t> bytes = 0;
    std::atomic<bool> partial = false;
    std::atomic<std::size_t> unfinished = 1; // tasks queued or being walked: at first the folder itself
    std::mutex linksLock;
    std::unordered_set<LinkKey, LinkKeyHash> links; // files with more than one link met so far

    bool firstSight(std::uint64_t device, std::uint64_t inode)
    {
        std::lock_guard lock(linksLock);
        return links.insert({device, inode}).second;
    }
};

// A folder still to walk: a requested one (fd -1, opened when taken) or a
// sub-folder handed over open.
struct Task {
    std::size_t folder = 0;
    TreeWalk::Start start;
};

class Count {
public:
    Count(const std::vector<std::filesystem::path> &folders, OperationControl &control,
          const FolderSizeProgress &progress, std::chrono::milliseconds interval)
        : m_folders(folders), m_control(control), m_progress(progress),
          m_interval(std::chrono::duration_cast<Clock::duration>(interval)), m_tallies(folders.size()),
          m_workers(std::clamp(std::thread::hardware_concurrency(), 1u, 4u)),
          m_nextReport((Clock::now() + m_interval).time_since_epoch().count())
    {
    }

    std::vector<FolderSize> run();

private:
    class Walker;

    void work();
    bool take(Task &task);
    void walk(Task &task);
    void handOver(Task task);
    bool wantsWork() const { return m_queued.load(std::memory_order_relaxed) < m_workers; }
    void maybeReport();
    std::vector<FolderSize> totals() const;
    std::vector<bool> finished() const;

    const std::vector<std::filesystem::path> &m_folders;
    OperationControl &m_control;
    const FolderSizeProgress &m_progress;
    const Clock::duration m_interval;
    std::vector<Tally> m_tallies;
    const unsigned m_workers;
    std::atomic<Clock::rep> m_nextReport;
    std::atomic<std::size_t> m_queued = 0;
    std::atomic<bool> m_abort = false;

    std::mutex m_lock; // guards what follows
    std::condition_variable m_changed;
    std::deque<Task> m_tasks;
    std::size_t m_busy = 0;
    std::exception_ptr m_error;
};

class Count::Walker final : public TreeWalk::Visitor {
public:
    Walker(Count &count, std::size_t folder)
        : m_count(count), m_folder(folder), m_tally(count.m_tallies[folder])
    {
    }
    ~Walker() { flush(); }
    Walker(const Walker &) = delete;
    Walker &operator=(const Walker &) = delete;

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        if (++m_seen % checkEvery == 0) {
            flush();
            if (m_count.m_abort.load(std::memory_order_relaxed))
                return TreeWalk::Next::stop;
            m_count.m_control.check();
            m_count.maybeReport();
        }
        if (entry.otherVolume)
            return TreeWalk::Next::proceed; // a mount point counts with nothing under it, as with du -x
        if (entry.kind != TreeWalk::Kind::directory && entry.links > 1 &&
            !m_tally.firstSight(entry.device, entry.inode))
            return TreeWalk::Next::proceed;
        m_bytes += entry.size;
        if (entry.kind == TreeWalk::Kind::directory && m_count.wantsWork()) {
            std::string name(entry.name);
            const int fd = TreeWalk::openFolder(entry.parentFd, name.c_str());
            if (fd >= 0) {
                m_count.handOver(Task{m_folder, TreeWalk::Start{fd, std::string(entry.relativePath),
                                                                entry.depth, std::move(name)}});
                return TreeWalk::Next::prune;
            }
            // The walk tries again and reports why it cannot enter.
        }
        return TreeWalk::Next::proceed;
    }

    TreeWalk::Next failed(const TreeWalk::Entry &, int error) override
    {
        if (error != ENOENT) // an item removed meanwhile holds nothing to count
            m_tally.partial = true;
        return m_count.m_abort.load(std::memory_order_relaxed) ? TreeWalk::Next::stop
                                                               : TreeWalk::Next::proceed;
    }

private:
    void flush()
    {
        if (m_bytes != 0)
            m_tally.bytes.fetch_add(std::exchange(m_bytes, 0), std::memory_order_relaxed);
    }

    Count &m_count;
    std::size_t m_folder;
    Tally &m_tally;
    std::int64_t m_bytes = 0;
    unsigned m_seen = 0;
};

std::vector<FolderSize> Count::run()
{
    for (std::size_t folder = 0; folder < m_folders.size(); ++folder)
        m_tasks.push_back(Task{folder, TreeWalk::Start{-1, {}, 0, m_folders[folder].filename().string()}});
    m_queued = m_tasks.size();
    std::vector<std::thread> helpers;
    for (unsigned helper = 1; helper < m_workers; ++helper) {
        try {
            helpers.emplace_back([this] { work(); });
        } catch (const std::system_error &) {
            break; // no thread to be had: fewer workers share the tasks
        }
    }
    work();
    for (std::thread &helper : helpers)
        helper.join();
    for (const Task &task : m_tasks) // left over when the count stopped early
        if (task.start.fd >= 0)
            ::close(task.start.fd);
    if (m_error)
        std::rethrow_exception(m_error);
    m_control.check();
    return totals();
}

void Count::work()
{
    Task task;
    while (take(task)) {
        try {
            walk(task);
        } catch (...) {
            std::lock_guard lock(m_lock);
            if (!m_error)
                m_error = std::current_exception();
            m_abort = true;
        }
        m_tallies[task.folder].unfinished.fetch_sub(1);
        std::lock_guard lock(m_lock);
        --m_busy;
        m_changed.notify_all();
    }
}

// Waits for a task; false once there is none left and none can come (no worker
// is walking), or the count stops.
bool Count::take(Task &task)
{
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [this] { return m_abort || !m_tasks.empty() || m_busy == 0; });
    if (m_abort || m_tasks.empty())
        return false;
    task = std::move(m_tasks.front());
    m_tasks.pop_front();
    m_queued = m_tasks.size();
    ++m_busy;
    return true;
}

void Count::walk(Task &task)
{
    Tally &tally = m_tallies[task.folder];
    if (task.start.fd < 0) {
        std::int64_t own = 0;
        task.start.fd = TreeWalk::openStart(m_folders[task.folder], own);
        tally.bytes += own;
        if (task.start.fd < 0) {
            tally.partial = true;
            return;
        }
    }
    Walker walker(*this, task.folder);
    TreeWalk::walk(std::move(task.start), TreeWalk::Options{false, true, true}, walker);
}

void Count::handOver(Task task)
{
    m_tallies[task.folder].unfinished.fetch_add(1);
    {
        std::lock_guard lock(m_lock);
        m_tasks.push_back(std::move(task));
        m_queued = m_tasks.size();
    }
    m_changed.notify_one();
}

// Whichever worker finds the interval over reports, so a worker held up in a
// slow folder does not hold up the report.
void Count::maybeReport()
{
    if (!m_progress)
        return;
    const Clock::rep now = Clock::now().time_since_epoch().count();
    Clock::rep due = m_nextReport.load(std::memory_order_relaxed);
    if (now < due || !m_nextReport.compare_exchange_strong(due, now + m_interval.count()))
        return;
    // Finished first: a folder heard as finished has its final total in these.
    const std::vector<bool> done = finished();
    m_progress(totals(), done);
}

std::vector<bool> Count::finished() const
{
    std::vector<bool> finished;
    finished.reserve(m_tallies.size());
    for (const Tally &tally : m_tallies)
        finished.push_back(tally.unfinished.load() == 0);
    return finished;
}

std::vector<FolderSize> Count::totals() const
{
    std::vector<FolderSize> sizes;
    sizes.reserve(m_tallies.size());
    for (const Tally &tally : m_tallies)
        sizes.push_back({tally.bytes.load(std::memory_order_relaxed), tally.partial.load()});
    return sizes;
}

} // namespace

std::vector<FolderSize> SizeWalk::run(const std::vector<std::filesystem::path> &folders,
                                      OperationControl &control, const FolderSizeProgress &progress,
                                      std::chrono::milliseconds interval)
{
    return Count(folders, control, progress, interval).run();
}

} // namespace quillorn::detail
