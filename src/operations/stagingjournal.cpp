#include "operations/stagingjournal.h"

#include "operations/appdiagnostics.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/ownerlocks.h"
#include "platform/posix/percentencoding.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/privatefolder.h"
#include "platform/posix/removal.h"
#include "platform/posix/stagingname.h"
#include "platform/posix/userfolders.h"
#include "platform/posix/volume.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace quillorn {
namespace {

constexpr std::string_view kPrefix = "staging-";
constexpr std::size_t kRewriteAbove = 64 * 1024;

struct LiveEntry {
    std::string target;
    std::optional<VolumeMark> volume; // none in the journals of older versions
    std::string record;               // the add record, line feed included
};

// The rest of an add record after the staging path.
std::string addFields(const fs::path &staging, const fs::path &target)
{
    std::string fields = percentEncoded(target.native());
    if (const std::optional<VolumeMark> volume = volumeMark(staging.parent_path()))
        fields +=
            " " + percentEncoded(volume->mountPoint.native()) + " " + std::to_string(volume->fileSystemId);
    return fields;
}

// The live entries a journal's text leaves: adds not followed by their remove.
// A last line without its line feed was being written when the owner died: its
// add() never returned, so its staging item was never made.
std::map<std::string, LiveEntry> liveEntries(const std::string &text)
{
    std::map<std::string, LiveEntry> live;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string record = text.substr(start, end - start + 1);
        std::istringstream line(record);
        std::string verb, staging, target, mountPoint;
        std::uint64_t fileSystemId = 0;
        line >> verb >> staging >> target >> mountPoint >> fileSystemId;
        const std::optional<std::string> stagingBytes = percentDecoded(staging),
                                         targetBytes = percentDecoded(target),
                                         mountBytes = percentDecoded(mountPoint);
        if (verb == "add" && stagingBytes && targetBytes && !stagingBytes->empty()) {
            LiveEntry &entry = live[*stagingBytes] = {*targetBytes, {}, record};
            if (line && mountBytes && !mountBytes->empty())
                entry.volume = VolumeMark{*mountBytes, fileSystemId};
        } else if (verb == "remove" && stagingBytes)
            live.erase(*stagingBytes);
    }
    return live;
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

std::string readAll(int descriptor)
{
    std::string text;
    char buffer[16384];
    for (ssize_t count; (count = ::read(descriptor, buffer, sizeof buffer)) != 0;) {
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            break;
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

// Removes the live entries of a gone owner's journal and returns the removed
// paths; the add records of entries to keep for a later start go into kept.
std::vector<fs::path> removeLeftovers(int folder, const std::string &owner, std::string &kept)
{
    std::vector<fs::path> removed;
    const std::string journal = std::string(kPrefix) + owner + ".journal";
    const FileDescriptor file(::openat(folder, journal.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        return removed;
    AppDiagnostics &log = AppDiagnostics::shared();
    for (const auto &[staging, entry] : liveEntries(readAll(file.get()))) {
        struct stat info {};
        if (!isStagingPath(staging))
            continue;
        if (::lstat(staging.c_str(), &info) != 0) {
            // Not found on a volume that is not there says nothing: it may be
            // mounted again later, with the item still on it.
            if (entry.volume && !volumeIsMounted(*entry.volume))
                kept += entry.record;
            continue;
        }
        const std::string fields =
            " staging=" + detail::logText(staging) + " target=" + detail::logText(entry.target);
        try {
            removeTree(staging, true);
            log.record("STAGING REMOVED" + fields);
            removed.emplace_back(staging);
        } catch (const std::exception &error) {
            log.record("STAGING REMOVE FAILED" + fields + " error=" + AppDiagnostics::describe(error));
        }
    }
    return removed;
}

// Replaces a gone owner's journal by the records in kept, atomically. When that
// fails the journal stays as it was: its entries already dealt with are passed
// over at the next start, as their items no longer exist on a mounted volume.
void keepOnly(int folder, const std::string &owner, const std::string &kept)
{
    const std::string name = std::string(kPrefix) + owner + ".journal", fresh = name + ".new";
    const FileDescriptor file(
        ::openat(folder, fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    bool written = false;
    try {
        if (file) {
            writeAll(file.get(), kept, fresh);
            written =
                ::fsync(file.get()) == 0 && ::renameat(folder, fresh.c_str(), folder, name.c_str()) == 0;
        }
    } catch (const PosixError &) {
    }
    if (written)
        ::fsync(folder);
    else
        ::unlinkat(folder, fresh.c_str(), 0);
}

} // namespace

StagingJournal &StagingJournal::shared()
{
    // Never destroyed: a transfer on a worker thread may still record while the process exits.
    static StagingJournal *const instance = new StagingJournal(stateHome() / "Quillorn");
    return *instance;
}

struct StagingJournal::Files {
    FileDescriptor folder, lock, journal;
};

StagingJournal::StagingJournal(fs::path folder)
    : m_folder(std::move(folder)), m_id(newOwnerId()), m_files(std::make_unique<Files>())
{
}

StagingJournal::~StagingJournal()
{
    if (!m_live.empty() || !m_files->folder)
        return;
    for (const char *suffix : {".journal", ".lock"})
        ::unlinkat(m_files->folder.get(), (std::string(kPrefix) + m_id + suffix).c_str(), 0);
}

void StagingJournal::add(const fs::path &staging, const fs::path &target) noexcept
{
    try {
        std::lock_guard guard(m_lock);
        open();
        std::string fields = addFields(staging, target);
        writeRecord("add " + percentEncoded(staging.native()) + " " + fields + "\n");
        m_live[staging.native()] = std::move(fields);
        if (::fdatasync(m_files->journal.get()) != 0)
            throwPosixError(m_folder / (std::string(kPrefix) + m_id + ".journal"));
    } catch (const std::exception &error) {
        reportOnce(error);
    }
}

void StagingJournal::remove(const fs::path &staging) noexcept
{
    try {
        std::lock_guard guard(m_lock);
        if (m_live.erase(staging.native()) == 0 || !m_files->journal)
            return;
        // Not flushed: a remove lost in a crash leaves an entry whose staging item
        // no longer exists, which recovery passes over.
        if (m_live.empty()) {
            if (::ftruncate(m_files->journal.get(), 0) == 0)
                m_journalBytes = m_records = 0;
            return;
        }
        writeRecord("remove " + percentEncoded(staging.native()) + "\n");
        // Rewritten once it is long and mostly dead, so that rewrites stay rare.
        if (m_journalBytes > kRewriteAbove && m_live.size() * 4 < m_records)
            rewrite();
    } catch (const std::exception &error) {
        reportOnce(error);
    }
}

void StagingJournal::open()
{
    if (m_files->journal)
        return;
    if (!m_files->folder)
        m_files->folder = openPrivateFolder(m_folder);
    const std::string base = std::string(kPrefix) + m_id;
    if (!m_files->lock)
        m_files->lock = takeLock(m_files->folder.get(), base + ".lock", m_folder / (base + ".lock"));
    // Made afresh from what is live (after a failed write, what was there may be torn).
    rewrite();
}

void StagingJournal::writeRecord(const std::string &record)
{
    try {
        writeAll(m_files->journal.get(), record, m_folder / (std::string(kPrefix) + m_id + ".journal"));
        m_journalBytes += record.size();
        ++m_records;
    } catch (const PosixError &) {
        // A torn record would swallow the next one; cut it off, or start afresh at the next add().
        if (::ftruncate(m_files->journal.get(), static_cast<off_t>(m_journalBytes)) != 0)
            m_files->journal = FileDescriptor();
        throw;
    }
}

void StagingJournal::rewrite()
{
    const int folder = m_files->folder.get();
    const std::string fresh = std::string(kPrefix) + m_id + ".journal.new";
    const std::string name = std::string(kPrefix) + m_id + ".journal";
    FileDescriptor file(::openat(folder, fresh.c_str(),
                                 O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        throwPosixError(m_folder / fresh);
    std::string text;
    for (const auto &[staging, fields] : m_live)
        text += "add " + percentEncoded(staging) + " " + fields + "\n";
    writeAll(file.get(), text, m_folder / fresh);
    if (::fsync(file.get()) != 0 || ::renameat(folder, fresh.c_str(), folder, name.c_str()) != 0 ||
        ::fsync(folder) != 0)
        throwPosixError(m_folder / name);
    m_files->journal = std::move(file);
    m_journalBytes = text.size();
    m_records = m_live.size();
}

void StagingJournal::reportOnce(const std::exception &error) noexcept
{
    if (m_reported.exchange(true))
        return;
    AppDiagnostics::shared().record("STAGING JOURNAL FAILED path=" + detail::logPath(m_folder) +
                                    " error=" + AppDiagnostics::describe(error));
}

std::vector<fs::path> StagingJournal::recover()
{
    // Nothing to do, and nothing to create, where no journal was ever kept.
    const FileDescriptor folder(::open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder)
        return {};
    std::vector<fs::path> removed;
    for (const std::string &owner : ownersIn(folder.get(), kPrefix)) {
        if (owner == m_id)
            continue;
        const std::optional<FileDescriptor> lock = lockOfGoneOwner(folder.get(), kPrefix, owner);
        if (!lock)
            continue;
        std::string kept;
        for (fs::path &path : removeLeftovers(folder.get(), owner, kept))
            removed.push_back(std::move(path));
        if (!kept.empty()) {
            keepOnly(folder.get(), owner, kept);
            continue;
        }
        // The lock goes last, so that a journal is never found without its lock while it matters.
        for (const char *suffix : {".journal", ".journal.new", ".lock"})
            ::unlinkat(folder.get(), (std::string(kPrefix) + owner + suffix).c_str(), 0);
    }
    return removed;
}

} // namespace quillorn
