#include "services/jobjournal.h"

#include "operations/appdiagnostics.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/ownerlocks.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/privatefolder.h"
#include "platform/posix/userfolders.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <random>
#include <set>

namespace fs = std::filesystem;

namespace quillorn {

namespace {

constexpr std::string_view prefix = "jobs-";

std::string fileName(const std::string &owner, const char *suffix)
{
    return std::string(prefix) + owner + suffix;
}

void writeAll(int descriptor, const std::string &text, const fs::path &shown)
{
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throwPosixError(shown, count < 0 ? errno : EIO);
        written += static_cast<std::size_t>(count);
    }
}

std::string readAll(int descriptor, const fs::path &shown)
{
    std::string text;
    char buffer[16384];
    for (ssize_t count; (count = ::read(descriptor, buffer, sizeof buffer)) != 0;) {
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throwPosixError(shown);
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

void removeOwnerFiles(int folder, const std::string &owner)
{
    // The lock goes last, so a journal is never found without its lock while it matters.
    for (const char *suffix : {".journal", ".journal.new", ".publications", ".lock"})
        ::unlinkat(folder, fileName(owner, suffix).c_str(), 0);
}

} // namespace

struct JobJournal::Files {
    FileDescriptor folder, lock, log;
};

std::shared_ptr<JobJournal> JobJournal::open()
{
    return std::make_shared<JobJournal>(stateHome() / "Quillorn");
}

JobJournal::JobJournal(Path folder)
    : m_folder(std::move(folder)), m_id(newOwnerId()), m_files(std::make_unique<Files>()),
      m_writer([this] { writerLoop(); })
{
}

JobJournal::~JobJournal()
{
    {
        std::lock_guard guard(m_lock);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_writer.join();
    writeLatest();
    std::lock_guard guard(m_lock);
    if (m_jobs.empty() && m_files->folder)
        removeOwnerFiles(m_files->folder.get(), m_id);
}

void JobJournal::save(std::vector<Entry> jobs)
{
    {
        std::lock_guard guard(m_lock);
        for (Entry &job : jobs) {
            const auto known = std::find_if(m_jobs.begin(), m_jobs.end(),
                                            [&](const Entry &entry) { return entry.id == job.id; });
            if (known != m_jobs.end())
                job.published = std::move(known->published);
        }
        m_jobs = std::move(jobs);
        ++m_version;
    }
    m_changed.notify_all();
}

void JobJournal::publishing(const QUuid &id, const PublishIntent &intent) noexcept
{
    record(id, {intent, false}, true);
}

void JobJournal::published(const QUuid &id, const Path &source) noexcept
{
    // With the copy's seal on record, the intent alone lets the next run know the
    // copy, so the confirmation need not wait for the disk.
    bool sealed = false;
    {
        std::lock_guard guard(m_lock);
        for (const Entry &entry : m_jobs)
            if (entry.id == id)
                for (const JobRunner::Publication &publication : entry.published)
                    if (publication.intent.source == source)
                        sealed = !publication.intent.copySeal.empty();
    }
    record(id, {{source, {}, {}, {}, {}}, true}, !sealed);
}

void JobJournal::record(const QUuid &id, const JobRunner::Publication &publication, bool durable) noexcept
{
    try {
        bool unwritten = false;
        {
            std::lock_guard guard(m_lock);
            unwritten = m_written < m_version;
        }
        // The job itself must be on disk before anything is said of it.
        if (unwritten)
            writeLatest();
        std::lock_guard writing(m_writeLock);
        {
            std::lock_guard guard(m_lock);
            for (Entry &entry : m_jobs)
                if (entry.id == id)
                    detail::addPublication(entry.published, publication);
        }
        append(detail::publicationLine(id, publication), durable);
    } catch (const std::exception &error) {
        reportOnce(error);
    }
}

void JobJournal::append(const std::string &line, bool durable)
{
    openFiles();
    if (!m_files->log) {
        const std::string name = fileName(m_id, ".publications");
        m_files->log = FileDescriptor(::openat(m_files->folder.get(), name.c_str(),
                                               O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!m_files->log || ::fsync(m_files->folder.get()) != 0)
            throwPosixError(m_folder / name);
    }
    const fs::path shown = m_folder / fileName(m_id, ".publications");
    writeAll(m_files->log.get(), line, shown);
    if (durable && ::fdatasync(m_files->log.get()) != 0)
        throwPosixError(shown);
}

void JobJournal::openFiles()
{
    if (!m_files->folder)
        m_files->folder = openPrivateFolder(m_folder);
    if (!m_files->lock)
        m_files->lock =
            takeLock(m_files->folder.get(), fileName(m_id, ".lock"), m_folder / fileName(m_id, ".lock"));
}

std::vector<JobRunner::Publication> JobJournal::publishedBy(const QUuid &id) const
{
    std::lock_guard guard(m_lock);
    for (const Entry &entry : m_jobs)
        if (entry.id == id)
            return entry.published;
    return {};
}

void JobJournal::flush()
{
    std::unique_lock guard(m_lock);
    const std::uint64_t wanted = m_version;
    m_caughtUp.wait(guard, [&] { return m_written >= wanted; });
}

void JobJournal::writerLoop()
{
    std::unique_lock guard(m_lock);
    for (;;) {
        m_changed.wait(guard, [this] { return m_stopping || m_written < m_version; });
        if (m_stopping)
            return;
        guard.unlock();
        writeLatest();
        guard.lock();
    }
}

bool JobJournal::writeLatest() noexcept
{
    std::lock_guard writing(m_writeLock);
    std::uint64_t version = 0;
    std::string text;
    bool none = false;
    {
        std::lock_guard guard(m_lock);
        version = m_version;
        text = detail::journalText(m_jobs);
        none = m_jobs.empty();
    }
    bool written = true;
    try {
        // Nothing to keep and nothing kept yet: no files at all.
        if (text != m_lastText && !(none && !m_files->lock))
            write(text);
        m_lastText = text;
    } catch (const std::exception &error) {
        reportOnce(error);
        written = false;
    }
    {
        std::lock_guard guard(m_lock);
        m_written = std::max(m_written, version);
    }
    m_caughtUp.notify_all();
    return written;
}

void JobJournal::write(const std::string &text)
{
    openFiles();
    const int folder = m_files->folder.get();
    const std::string fresh = fileName(m_id, ".journal.new"), name = fileName(m_id, ".journal");
    FileDescriptor file(
        ::openat(folder, fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        throwPosixError(m_folder / fresh);
    writeAll(file.get(), text, m_folder / fresh);
    if (::fsync(file.get()) != 0 || ::renameat(folder, fresh.c_str(), folder, name.c_str()) != 0 ||
        ::fsync(folder) != 0)
        throwPosixError(m_folder / name);
    // The journal now holds every publication the log does (both are written
    // under the same lock); should the emptying not reach the disk, the next
    // start finds each record twice and takes it once.
    if (m_files->log)
        ::ftruncate(m_files->log.get(), 0);
}

void JobJournal::reportOnce(const std::exception &error) noexcept
{
    if (m_reported.exchange(true))
        return;
    AppDiagnostics::shared().record("JOB JOURNAL FAILED path=" + detail::logPath(m_folder) +
                                    " error=" + AppDiagnostics::describe(error));
}

std::vector<JobJournal::Entry> JobJournal::recover()
{
    // Nothing to do, and nothing to create, where no journal was ever kept.
    const FileDescriptor folder(::open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder)
        return {};
    std::vector<Entry> found;
    std::vector<std::string> adopted;
    std::vector<FileDescriptor> locks; // held until the owners' files are gone
    for (const std::string &owner : ownersIn(folder.get(), prefix)) {
        if (owner == m_id)
            continue;
        std::optional<FileDescriptor> lock = lockOfGoneOwner(folder.get(), prefix, owner);
        if (!lock)
            continue;
        const std::string name = fileName(owner, ".journal");
        const fs::path shown = m_folder / name;
        try {
            const FileDescriptor file(
                ::openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
            if (!file && errno == ENOENT) {
                removeOwnerFiles(folder.get(), owner);
                continue;
            }
            if (!file)
                throwPosixError(shown);
            std::optional<std::vector<Entry>> entries = detail::parseJournal(readAll(file.get(), shown));
            if (!entries)
                throw std::runtime_error("the journal is damaged");
            const std::string logName = fileName(owner, ".publications");
            const FileDescriptor log(
                ::openat(folder.get(), logName.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
            if (log)
                detail::applyPublicationLog(readAll(log.get(), m_folder / logName), *entries);
            else if (errno != ENOENT)
                throwPosixError(m_folder / logName);
            for (Entry &entry : *entries)
                found.push_back(std::move(entry));
            adopted.push_back(owner);
            locks.push_back(std::move(*lock));
        } catch (const std::exception &error) {
            const std::string aside = "damaged-" + name;
            const bool moved = ::renameat(folder.get(), name.c_str(), folder.get(), aside.c_str()) == 0;
            AppDiagnostics::shared().record(
                "JOB JOURNAL SET ASIDE path=" + detail::logPath(shown) +
                (moved ? " kept=" + detail::logPath(m_folder / aside) : std::string()) +
                " error=" + AppDiagnostics::describe(error));
            if (moved)
                removeOwnerFiles(folder.get(), owner);
        }
    }
    if (found.empty() && adopted.empty())
        return {};
    {
        std::lock_guard guard(m_lock);
        for (const Entry &entry : found)
            if (std::none_of(m_jobs.begin(), m_jobs.end(),
                             [&](const Entry &own) { return own.id == entry.id; }))
                m_jobs.push_back(entry);
        ++m_version;
    }
    // Theirs go only once they are ours on disk.
    if (!writeLatest())
        return found;
    for (const std::string &owner : adopted)
        removeOwnerFiles(folder.get(), owner);
    return found;
}

} // namespace quillorn
