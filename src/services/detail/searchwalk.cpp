#include "services/detail/searchwalk.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/core/displaytext.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/treewalk.h"
#include "services/detail/namematcher.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace quillorn::detail {

namespace {

constexpr std::size_t limit = SearchReport::limit;
// Enough folders to keep every worker busy while one of them holds a big one.
constexpr std::size_t wantedTasks = 64;
constexpr int deepestSplit = 6;

// One stretch of the tree in walk order: hits met while listing the top of the
// tree, or a folder still to walk (a task) and then what its walk found.
struct Piece {
    std::string relativePath; // a task's folder, opened when its walk starts
    int depth = 0;
    std::string name;
    bool task = false;
    std::vector<SearchResult> hits;
    std::vector<std::pair<std::size_t, QString>> warnings; // after how many of this piece's hits
};

QString warning(std::string_view name, int error)
{
    return displayText(std::string(name)) + QStringLiteral(": ") +
           QString::fromStdString(std::generic_category().message(error));
}

// What every walk shares: the matcher, the control, the pieces and how far the
// tree is known to be searched.
class Search {
public:
    Search(const std::filesystem::path &root, const QString &query, bool hidden, OperationControl &control)
        : m_root(root), m_matcher(query), m_hidden(hidden), m_control(control)
    {
    }

    SearchReport run();

private:
    class Lister;
    class Walker;

    void split();
    // Walks a task's folder with the visitor; a folder that cannot be opened is a warning.
    void walkTask(Piece &piece, TreeWalk::Visitor &visitor);
    void work();
    std::size_t hitsBefore(std::size_t index);
    SearchReport assemble();

    const std::filesystem::path &m_root;
    NameMatcher m_matcher;
    bool m_hidden;
    OperationControl &m_control;
    FileDescriptor m_rootFolder;
    std::vector<Piece> m_pieces;

    std::mutex m_lock; // guards what follows and the hit counts of finished pieces
    std::vector<bool> m_finished;
    std::size_t m_nextPiece = 0;
    std::exception_ptr m_error;
    std::atomic<bool> m_abort = false;
};

// Lists one folder without entering its sub-folders: they become tasks.
class Search::Lister final : public TreeWalk::Visitor {
public:
    Lister(Search &search, std::vector<Piece> &out, std::size_t &hitsSoFar)
        : m_search(search), m_out(out), m_hitsSoFar(hitsSoFar)
    {
        m_out.emplace_back();
    }

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        m_search.m_control.check();
        if (m_search.m_matcher.matches(entry.name)) {
            m_out.back().hits.push_back(
                {m_search.m_root / std::string(entry.relativePath), std::string(entry.relativePath), 0, {}});
            if (++m_hitsSoFar >= limit)
                return TreeWalk::Next::stop; // nothing after this can be part of the report
        }
        if (entry.kind != TreeWalk::Kind::directory)
            return TreeWalk::Next::proceed;
        Piece task;
        task.relativePath = entry.relativePath;
        task.depth = entry.depth;
        task.name = entry.name;
        task.task = true;
        m_out.push_back(std::move(task));
        m_out.emplace_back();
        return TreeWalk::Next::prune;
    }

    TreeWalk::Next failed(const TreeWalk::Entry &entry, int error) override
    {
        m_out.back().warnings.emplace_back(m_out.back().hits.size(), warning(entry.name, error));
        return TreeWalk::Next::proceed;
    }

private:
    Search &m_search;
    std::vector<Piece> &m_out;
    std::size_t &m_hitsSoFar;
};

// Walks one task's folder to the bottom.
class Search::Walker final : public TreeWalk::Visitor {
public:
    Walker(Search &search, std::size_t index)
        : m_search(search), m_index(index), m_piece(search.m_pieces[index])
    {
    }

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        m_search.m_control.check();
        if (m_search.m_abort)
            return TreeWalk::Next::stop;
        if (!m_search.m_matcher.matches(entry.name))
            return TreeWalk::Next::proceed;
        m_piece.hits.push_back(
            {m_search.m_root / std::string(entry.relativePath), std::string(entry.relativePath), 0, {}});
        // Now and then: stop once the hits before this piece and in it fill the report.
        if (m_piece.hits.size() >= limit ||
            (m_piece.hits.size() % 256 == 0 && m_search.hitsBefore(m_index) + m_piece.hits.size() >= limit))
            return TreeWalk::Next::stop;
        return TreeWalk::Next::proceed;
    }

    TreeWalk::Next failed(const TreeWalk::Entry &entry, int error) override
    {
        m_piece.warnings.emplace_back(m_piece.hits.size(), warning(entry.name, error));
        return TreeWalk::Next::proceed;
    }

private:
    Search &m_search;
    std::size_t m_index;
    Piece &m_piece;
};

SearchReport Search::run()
{
    const int rootFd = ::open(m_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0)
        throw CommanderError("Cannot search this folder.");
    m_rootFolder = FileDescriptor(rootFd);
    Piece root;
    root.name = m_root.filename().string();
    root.task = true;
    m_pieces.push_back(std::move(root));
    split();

    m_finished.assign(m_pieces.size(), false);
    const auto tasks =
        std::size_t(std::count_if(m_pieces.begin(), m_pieces.end(), [](const Piece &p) { return p.task; }));
    const unsigned helpers =
        tasks < 2 ? 0 : std::min(std::max(std::thread::hardware_concurrency(), 1u), 4u) - 1;
    std::vector<std::thread> threads;
    for (unsigned helper = 0; helper < helpers; ++helper)
        threads.emplace_back([this] { work(); });
    work();
    for (std::thread &thread : threads)
        thread.join();
    if (m_error)
        std::rethrow_exception(m_error);
    return assemble();
}

// Lists the top of the tree, level by level, until there are enough folders to share out.
void Search::split()
{
    for (int level = 0; level < deepestSplit; ++level) {
        auto tasks = std::size_t(
            std::count_if(m_pieces.begin(), m_pieces.end(), [](const Piece &p) { return p.task; }));
        if (tasks == 0 || (level > 0 && tasks >= wantedTasks))
            return;
        std::vector<Piece> next;
        std::size_t hitsSoFar = 0;
        std::size_t newTasks = 0; // made in this pass; `tasks` counts those still to expand
        for (Piece &piece : m_pieces) {
            if (hitsSoFar >= limit)
                break; // the rest lies after a full report
            if (!piece.task) {
                hitsSoFar += piece.hits.size();
                next.push_back(std::move(piece));
                continue;
            }
            if (tasks + newTasks >= wantedTasks) {
                next.push_back(std::move(piece)); // walked whole by a worker
                continue;
            }
            --tasks;
            const std::size_t before = next.size();
            Lister lister(*this, next, hitsSoFar);
            walkTask(piece, lister);
            // A folder that could not be opened: its warning stands where its listing would.
            next[before].warnings.insert(next[before].warnings.begin(), piece.warnings.begin(),
                                         piece.warnings.end());
            newTasks += std::size_t(std::count_if(next.begin() + std::ptrdiff_t(before), next.end(),
                                                  [](const Piece &p) { return p.task; }));
        }
        m_pieces = std::move(next);
    }
}

void Search::walkTask(Piece &piece, TreeWalk::Visitor &visitor)
{
    const int folder = TreeWalk::openBelow(m_rootFolder.get(), piece.relativePath);
    if (folder < 0) {
        const int error = errno;
        piece.warnings.emplace_back(piece.hits.size(), warning(piece.name, error));
        return;
    }
    TreeWalk::walk(TreeWalk::Start{folder, piece.relativePath, piece.depth, piece.name}, !m_hidden, visitor);
}

void Search::work()
{
    for (;;) {
        std::size_t index = 0;
        {
            std::lock_guard lock(m_lock);
            while (m_nextPiece < m_pieces.size() && !m_pieces[m_nextPiece].task)
                m_finished[m_nextPiece++] = true;
            if (m_nextPiece == m_pieces.size() || m_abort)
                return;
            index = m_nextPiece++;
        }
        Piece &piece = m_pieces[index];
        if (hitsBefore(index) < limit) {
            try {
                Walker walker(*this, index);
                walkTask(piece, walker);
            } catch (...) {
                std::lock_guard lock(m_lock);
                if (!m_error)
                    m_error = std::current_exception();
                m_abort = true;
                return;
            }
        }
        std::lock_guard lock(m_lock);
        m_finished[index] = true;
    }
}

// The hits known to come before a piece: those of the finished pieces before it.
std::size_t Search::hitsBefore(std::size_t index)
{
    std::lock_guard lock(m_lock);
    std::size_t count = 0;
    for (std::size_t before = 0; before < index; ++before)
        if (m_finished[before] || !m_pieces[before].task)
            count += m_pieces[before].hits.size();
    return count;
}

// Puts the pieces back in tree order and cuts where one walk would have stopped.
SearchReport Search::assemble()
{
    SearchReport report;
    for (Piece &piece : m_pieces) {
        const std::size_t before = report.items.size();
        for (const auto &[hitsAhead, text] : piece.warnings)
            if (before + hitsAhead < limit)
                report.warnings << text;
        const std::size_t take = std::min(piece.hits.size(), limit - before);
        std::move(piece.hits.begin(), piece.hits.begin() + std::ptrdiff_t(take),
                  std::back_inserter(report.items));
        if (report.items.size() == limit) {
            report.truncated = true;
            break;
        }
    }
    return report;
}

} // namespace

SearchReport SearchWalk::run(const std::filesystem::path &resolvedRoot, const QString &query, bool hidden,
                             OperationControl &control)
{
    return Search(resolvedRoot, query, hidden, control).run();
}

} // namespace quillorn::detail
