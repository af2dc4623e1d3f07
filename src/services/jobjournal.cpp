#include "services/jobjournal.h"

#include "operations/appdiagnostics.h"
#include "operations/detail/journalfile.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/ownerlocks.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/userfolders.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

namespace fs = std::filesystem;

namespace quillorn {

namespace {

constexpr std::string_view prefix = "jobs-";

std::string fileName(const std::string &owner, const char *suffix)
{
    return detail::ownerFileName(prefix, owner, suffix);
}

void removeOwnerFiles(int folder, const std::string &owner)
{
    detail::removeOwnerFiles(folder, prefix, owner, {".journal", ".journal.new", ".publications"});
}

} // namespace

struct JobJournal::Files : detail::OwnerFiles {
    FileDescriptor log;
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
    record(id, {{intent, false}}, true);
}

void JobJournal::publishing(const QUuid &id, const std::vector<PublishIntent> &intents) noexcept
{
    std::vector<JobRunner::Publication> publications;
    for (const PublishIntent &intent : intents)
        publications.push_back({intent, false});
    record(id, publications, true);
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
    record(id, {{{source, {}, {}, {}, {}}, true}}, !sealed);
}

void JobJournal::record(const QUuid &id, const std::vector<JobRunner::Publication> &publications,
                        bool durable) noexcept
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
        std::string lines;
        {
            std::lock_guard guard(m_lock);
            for (Entry &entry : m_jobs)
                if (entry.id == id)
                    detail::addPublications(entry.published, publications);
        }
        for (const JobRunner::Publication &publication : publications)
            lines += detail::publicationLine(id, publication);
        append(lines, durable);
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
    detail::appendRecord(m_files->log.get(), line, m_folder / fileName(m_id, ".publications"), durable);
}

void JobJournal::openFiles()
{
    m_files->open(m_folder, prefix, m_id);
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
    detail::replaceAtomically(m_files->folder.get(), fileName(m_id, ".journal"), text, m_folder);
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
    const FileDescriptor folder = detail::openJournalFolder(m_folder);
    if (!folder)
        return {};
    std::vector<Entry> found;
    std::vector<std::string> adopted;
    std::vector<FileDescriptor> locks; // held until the owners' files are gone
    detail::forEachGoneOwner(folder.get(), prefix, m_id, [&](const std::string &owner, FileDescriptor &lock) {
        const std::string name = fileName(owner, ".journal");
        const fs::path shown = m_folder / name;
        try {
            const FileDescriptor file = detail::openForReading(folder.get(), name);
            if (!file && errno == ENOENT) {
                removeOwnerFiles(folder.get(), owner);
                return;
            }
            if (!file)
                throwPosixError(shown);
            std::optional<std::vector<Entry>> entries =
                detail::parseJournal(detail::readAll(file.get(), shown));
            if (!entries)
                throw std::runtime_error("the journal is damaged");
            const std::string logName = fileName(owner, ".publications");
            const FileDescriptor log = detail::openForReading(folder.get(), logName);
            if (log)
                detail::applyPublicationLog(detail::readAll(log.get(), m_folder / logName), *entries);
            else if (errno != ENOENT)
                throwPosixError(m_folder / logName);
            for (Entry &entry : *entries)
                found.push_back(std::move(entry));
            adopted.push_back(owner);
            locks.push_back(std::move(lock));
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
    });
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
