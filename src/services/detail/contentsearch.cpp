#include "services/detail/contentsearch.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "platform/core/displaytext.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/treewalk.h"
#include "services/detail/contentmatcher.h"
#include "services/detail/namematcher.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace quillorn::detail {

namespace {

constexpr std::size_t limit = SearchReport::limit;
constexpr std::size_t filesPerBatch = 64;
constexpr std::size_t batchesAhead = 64;
// What a hit shows of its line: a little before the match, more after it.
constexpr std::size_t lineLead = 40;
constexpr std::size_t lineShown = 240;
// Kept from a chunk cut in the middle of a line: plain text overlaps by its own
// length (and the lead a hit shows), an expression by as much as it may
// plausibly span within one long line.
constexpr std::size_t plainKept = 64;
constexpr std::size_t patternKept = 4096;

QString warning(std::string_view name, int error)
{
    return displayText(std::string(name)) + QStringLiteral(": ") +
           QString::fromStdString(std::generic_category().message(error));
}

struct Candidate {
    std::size_t sequence; // place in walk order, shared with the walk's warnings
    std::string relativePath;
    std::size_t nameOffset;
};

// Files of one folder, with a descriptor of the folder they are opened in.
struct Batch {
    std::shared_ptr<FileDescriptor> folder;
    std::vector<Candidate> files;
};

template <typename T> struct InOrder {
    std::size_t sequence;
    T value;
};

// Batches from the walk to the readers, in walk order, a bounded number ahead.
class BatchQueue {
public:
    // False once the readers have stopped taking.
    bool push(Batch batch)
    {
        std::unique_lock lock(m_lock);
        m_notFull.wait(lock, [&] { return m_batches.size() < batchesAhead || m_stopped; });
        if (m_stopped)
            return false;
        m_batches.push_back(std::move(batch));
        m_notEmpty.notify_one();
        return true;
    }
    // None once the walk is over and all is taken, or taking has stopped.
    std::optional<Batch> pop()
    {
        std::unique_lock lock(m_lock);
        m_notEmpty.wait(lock, [&] { return !m_batches.empty() || m_ended || m_stopped; });
        if (m_stopped || m_batches.empty())
            return std::nullopt;
        Batch batch = std::move(m_batches.front());
        m_batches.pop_front();
        m_notFull.notify_one();
        return batch;
    }
    void end()
    {
        std::lock_guard lock(m_lock);
        m_ended = true;
        m_notEmpty.notify_all();
    }
    void stop()
    {
        std::lock_guard lock(m_lock);
        m_stopped = true;
        m_batches.clear();
        m_notEmpty.notify_all();
        m_notFull.notify_all();
    }

private:
    std::mutex m_lock;
    std::condition_variable m_notEmpty;
    std::condition_variable m_notFull;
    std::deque<Batch> m_batches;
    bool m_ended = false;
    bool m_stopped = false;
};

// The first line that holds a match, as a hit shows it.
struct Line {
    std::int64_t number = 0;
    std::string text;
};

// Reads files through one buffer of ContentSearch::chunk bytes.
class FileReader {
public:
    FileReader(const ContentMatcher &matcher, bool binaryFiles, OperationControl &control)
        : m_matcher(matcher), m_scratch(matcher.scratch()), m_binaryFiles(binaryFiles), m_control(control),
          m_buffer(ContentSearch::chunk)
    {
    }

    // The first matching line of the open file, if any. Throws PosixError
    // (with an empty path) when the file cannot be read.
    std::optional<Line> firstMatch(int fd, std::int64_t size)
    {
        m_fd = fd;
        m_size = size;
        m_filled = 0;
        m_base = 0;
        m_end = false;
        fill();
        if (!m_binaryFiles &&
            std::memchr(m_buffer.data(), 0, std::min(m_filled, ContentSearch::binaryProbe)) != nullptr)
            return std::nullopt;
        bool midLine = false; // the buffer starts inside a line
        for (;;) {
            m_control.check();
            if (m_filled == 0)
                return std::nullopt; // no line (left) to search
            std::size_t searched = m_filled;
            if (m_matcher.wholeLines() && !m_end) {
                // Whole lines only; a line longer than the buffer is searched in overlapping pieces.
                const void *newline = ::memrchr(m_buffer.data(), '\n', m_filled);
                if (newline != nullptr)
                    searched = std::size_t(static_cast<const char *>(newline) - m_buffer.data()) + 1;
            }
            const std::size_t at =
                m_matcher.find(std::string_view(m_buffer.data(), searched), midLine, *m_scratch);
            if (at != ContentMatcher::npos)
                return describe(at);
            if (m_end)
                return std::nullopt;
            // What was searched already is searched again only where a match may have begun in it.
            std::size_t kept = std::min(m_filled, std::max(m_matcher.overlap(), plainKept));
            if (m_matcher.wholeLines())
                kept = searched < m_filled ? m_filled - searched : std::min(m_filled, patternKept);
            midLine = searched == m_filled;
            std::memmove(m_buffer.data(), m_buffer.data() + m_filled - kept, kept);
            m_base += std::int64_t(m_filled - kept);
            m_filled = kept;
            fill();
            if (m_filled == kept && !m_matcher.wholeLines())
                return std::nullopt; // the end, and the kept bytes were searched already
        }
    }

private:
    // Reads until the buffer is full or the file ends.
    void fill()
    {
        while (m_filled < m_buffer.size() && !m_end) {
            const std::size_t wanted = m_buffer.size() - m_filled;
            const ssize_t got = ::read(m_fd, m_buffer.data() + m_filled, wanted);
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0)
                throwPosixError({});
            m_filled += std::size_t(got);
            // A short read up to the size the file had when opened is its end:
            // most files are read in one call, without a second one for the end.
            m_end = got == 0 || (std::size_t(got) < wanted && m_base + std::int64_t(m_filled) >= m_size);
            m_control.add(got);
        }
    }

    Line describe(std::size_t at)
    {
        const char *data = m_buffer.data();
        const void *before = ::memrchr(data, '\n', at);
        const std::size_t lineStart = before ? std::size_t(static_cast<const char *>(before) - data) + 1 : 0;
        const void *after = std::memchr(data + at, '\n', m_filled - at);
        std::size_t lineEnd = after ? std::size_t(static_cast<const char *>(after) - data) : m_filled;
        if (lineEnd > lineStart && data[lineEnd - 1] == '\r')
            --lineEnd;

        std::size_t from = lineStart;
        while (from < at && (data[from] == ' ' || data[from] == '\t'))
            ++from;
        std::string prefix;
        // The line began before the buffer, or far before the match.
        if ((before == nullptr && m_base > 0) || at - from > lineLead) {
            from = at - std::min(at, lineLead);
            prefix = "…";
        }
        std::size_t to = std::min(lineEnd, from + lineShown);
        // Not in the middle of a UTF-8 sequence.
        while (from < at && (static_cast<unsigned char>(data[from]) & 0xC0) == 0x80)
            ++from;
        while (to < lineEnd && to > at && (static_cast<unsigned char>(data[to]) & 0xC0) == 0x80)
            --to;
        Line line;
        line.text = prefix + std::string(data + from, to - from) + (to < lineEnd ? "…" : "");
        line.number = 1 + std::count(data, data + at, '\n');
        line.number += linesBefore(); // reads through the buffer: last
        return line;
    }

    // The line breaks in the part of the file before the buffer, read again
    // through the same buffer (what the hit shows is taken already).
    std::int64_t linesBefore()
    {
        std::int64_t lines = 0;
        for (std::int64_t offset = 0; offset < m_base;) {
            const auto wanted =
                std::size_t(std::min<std::int64_t>(m_base - offset, std::int64_t(m_buffer.size())));
            const ssize_t got = ::pread(m_fd, m_buffer.data(), wanted, offset);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                break;
            lines += std::count(m_buffer.data(), m_buffer.data() + got, '\n');
            offset += got;
        }
        return lines;
    }

    const ContentMatcher &m_matcher;
    std::unique_ptr<ContentMatcher::Scratch> m_scratch;
    bool m_binaryFiles;
    OperationControl &m_control;
    std::vector<char> m_buffer;
    int m_fd = -1;
    std::int64_t m_size = 0; // when opened
    std::size_t m_filled = 0;
    std::int64_t m_base = 0; // the file offset of the buffer's first byte
    bool m_end = false;
};

class Search final : public TreeWalk::Visitor {
public:
    Search(const std::filesystem::path &root, const QString &nameQuery, bool hidden,
           const ContentQuery &contents, OperationControl &control)
        : m_root(root), m_hidden(hidden), m_contents(contents), m_matcher(contents), m_control(control)
    {
        if (!nameQuery.trimmed().isEmpty())
            m_names.emplace(nameQuery);
    }

    SearchReport run();

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override;
    TreeWalk::Next failed(const TreeWalk::Entry &entry, int error) override;

private:
    void flush();
    void read();
    void readFile(int folder, const Candidate &file, FileReader &reader);
    void abort(std::exception_ptr error);
    SearchReport assemble();

    const std::filesystem::path &m_root;
    std::optional<NameMatcher> m_names;
    bool m_hidden;
    const ContentQuery &m_contents;
    ContentMatcher m_matcher;
    OperationControl &m_control;
    BatchQueue m_queue;

    // The walk's own: the batch being filled and the folder it was listed from.
    Batch m_batch;
    std::string m_batchFolder;
    std::size_t m_sequence = 0;
    std::vector<InOrder<QString>> m_walkWarnings;

    std::atomic<std::size_t> m_hits = 0;
    std::atomic<bool> m_aborted = false;
    std::mutex m_lock; // guards what follows
    std::vector<InOrder<SearchResult>> m_found;
    std::vector<InOrder<QString>> m_readWarnings;
    std::exception_ptr m_error;
};

TreeWalk::Next Search::entry(const TreeWalk::Entry &entry)
{
    m_control.check();
    if (m_aborted || m_hits >= limit)
        return TreeWalk::Next::stop;
    if (entry.kind != TreeWalk::Kind::file || (m_names && !m_names->matches(entry.name)))
        return TreeWalk::Next::proceed;
    const std::string_view folder =
        entry.relativePath.substr(0, entry.relativePath.size() - entry.name.size());
    if (!m_batch.files.empty() && (folder != m_batchFolder || m_batch.files.size() == filesPerBatch))
        flush();
    if (m_batch.files.empty()) {
        if (folder != m_batchFolder || !m_batch.folder) {
            const int copy = ::fcntl(entry.parentFd, F_DUPFD_CLOEXEC, 0);
            if (copy < 0)
                throwPosixError(m_root / std::string(entry.relativePath));
            m_batch.folder = std::make_shared<FileDescriptor>(copy);
            m_batchFolder = folder;
        }
    }
    m_batch.files.push_back(
        {m_sequence++, std::string(entry.relativePath), entry.relativePath.size() - entry.name.size()});
    return TreeWalk::Next::proceed;
}

TreeWalk::Next Search::failed(const TreeWalk::Entry &entry, int error)
{
    m_walkWarnings.push_back({m_sequence++, warning(entry.name, error)});
    return TreeWalk::Next::proceed;
}

void Search::flush()
{
    if (m_batch.files.empty())
        return;
    // Refused once the readers stop taking (the limit reached, or an error):
    // the walk stops at its next entry.
    Batch next{m_batch.folder, {}};
    m_queue.push(std::exchange(m_batch, std::move(next)));
}

SearchReport Search::run()
{
    const int rootFd = ::open(m_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (rootFd < 0)
        throw CommanderError("Cannot search this folder.");
    const unsigned readers = std::max(std::thread::hardware_concurrency(), 1u);
    std::vector<std::thread> threads;
    for (unsigned reader = 0; reader < readers; ++reader)
        threads.emplace_back([this] { read(); });
    try {
        TreeWalk::walk(TreeWalk::Start{rootFd, {}, 0, m_root.filename().string()}, !m_hidden, *this);
        flush();
    } catch (...) {
        abort(std::current_exception());
    }
    m_queue.end();
    for (std::thread &thread : threads)
        thread.join();
    if (m_error)
        std::rethrow_exception(m_error);
    return assemble();
}

void Search::abort(std::exception_ptr error)
{
    {
        std::lock_guard lock(m_lock);
        if (!m_error)
            m_error = std::move(error);
    }
    m_aborted = true;
    m_queue.stop();
}

void Search::read()
{
    try {
        FileReader reader(m_matcher, m_contents.binaryFiles, m_control);
        // A batch once taken is read whole, also past the limit: what was read
        // stays a prefix of the walk.
        while (m_hits < limit && !m_aborted) {
            std::optional<Batch> batch = m_queue.pop();
            if (!batch)
                return;
            for (const Candidate &file : batch->files) {
                if (m_aborted)
                    return;
                readFile(batch->folder->get(), file, reader);
            }
        }
    } catch (...) {
        abort(std::current_exception());
    }
}

void Search::readFile(int folder, const Candidate &file, FileReader &reader)
{
    m_control.check();
    const char *name = file.relativePath.c_str() + file.nameOffset;
    std::optional<Line> line;
    int error = 0;
    std::int64_t size = 0;
    const int fd = TreeWalk::openFile(folder, name, size);
    if (fd < 0) {
        error = errno;
    } else {
        FileDescriptor open(fd);
        try {
            line = reader.firstMatch(fd, size);
        } catch (const PosixError &failure) {
            error = failure.code().value();
        }
    }
    // Gone, or no longer a regular file, since it was listed: as if never met.
    if (error == ENOENT || error == ELOOP || error == ENODEV)
        return;
    if (error == 0 && !line)
        return;
    {
        std::lock_guard lock(m_lock);
        if (error != 0)
            m_readWarnings.push_back({file.sequence, warning(name, error)});
        else
            m_found.push_back({file.sequence, SearchResult{m_root / file.relativePath, file.relativePath,
                                                           line->number, std::move(line->text)}});
    }
    // No batch is taken after the one that reaches the limit.
    if (line && ++m_hits == limit)
        m_queue.stop();
}

// Puts hits and warnings in walk order and cuts where reading one file after
// the other would have stopped.
SearchReport Search::assemble()
{
    const auto bySequence = [](const auto &a, const auto &b) { return a.sequence < b.sequence; };
    std::sort(m_found.begin(), m_found.end(), bySequence);
    std::vector<InOrder<QString>> warnings = std::move(m_walkWarnings);
    warnings.insert(warnings.end(), std::make_move_iterator(m_readWarnings.begin()),
                    std::make_move_iterator(m_readWarnings.end()));
    std::sort(warnings.begin(), warnings.end(), bySequence);

    SearchReport report;
    report.truncated = m_found.size() >= limit;
    const std::size_t kept = std::min(m_found.size(), limit);
    const std::size_t last = report.truncated ? m_found[kept - 1].sequence : SIZE_MAX;
    for (std::size_t index = 0; index < kept; ++index)
        report.items.push_back(std::move(m_found[index].value));
    for (InOrder<QString> &line : warnings)
        if (line.sequence < last)
            report.warnings << std::move(line.value);
    return report;
}

} // namespace

SearchReport ContentSearch::run(const std::filesystem::path &resolvedRoot, const QString &nameQuery,
                                bool hidden, const ContentQuery &contents, OperationControl &control)
{
    return Search(resolvedRoot, nameQuery, hidden, contents, control).run();
}

} // namespace quillorn::detail
