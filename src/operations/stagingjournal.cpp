#include "operations/stagingjournal.h"

#include "operations/appdiagnostics.h"
#include "operations/detail/journalfile.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/ownerlocks.h"
#include "platform/posix/percentencoding.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/removal.h"
#include "platform/posix/stagingname.h"
#include "platform/posix/userfolders.h"
#include "platform/posix/volume.h"

#include <sys/stat.h>
#include <unistd.h>

#include <optional>
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
    if (const std::optional<VolumeMark> volume = volumeMark(staging.parent_path())) {
        // Appended piece by piece: GCC 12 at -O3 takes " " + a temporary for an
        // overlapping copy (-Wrestrict).
        fields += ' ';
        fields += percentEncoded(volume->mountPoint.native());
        fields += ' ';
        fields += std::to_string(volume->fileSystemId);
    }
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

// Removes the live entries of a gone owner's journal and returns the removed
// paths; the add records of entries to keep for a later start go into kept.
std::vector<fs::path> removeLeftovers(int folder, const std::string &owner, std::string &kept)
{
    std::vector<fs::path> removed;
    const std::optional<std::string> text = detail::readOwnerJournal(folder, kPrefix, owner);
    if (!text)
        return removed;
    AppDiagnostics &log = AppDiagnostics::shared();
    for (const auto &[staging, entry] : liveEntries(*text)) {
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
    const std::string name = detail::ownerFileName(kPrefix, owner, ".journal");
    try {
        detail::replaceAtomically(folder, name, kept, {});
    } catch (const PosixError &) {
        ::unlinkat(folder, (name + ".new").c_str(), 0);
    }
}

} // namespace

StagingJournal &StagingJournal::shared()
{
    // Never destroyed: a transfer on a worker thread may still record while the process exits.
    static StagingJournal *const instance = new StagingJournal(stateHome() / "Quillorn");
    return *instance;
}

struct StagingJournal::Files : detail::OwnerFiles {
    FileDescriptor journal;
};

StagingJournal::StagingJournal(fs::path folder)
    : m_folder(std::move(folder)), m_id(newOwnerId()), m_files(std::make_unique<Files>())
{
}

StagingJournal::~StagingJournal()
{
    if (!m_live.empty() || !m_files->folder)
        return;
    detail::removeOwnerFiles(m_files->folder.get(), kPrefix, m_id, {".journal"});
}

void StagingJournal::add(const fs::path &staging, const fs::path &target) noexcept
{
    try {
        std::lock_guard guard(m_lock);
        std::string fields = addFields(staging, target);
        if (!m_files->journal) {
            // The first record is written with the journal itself, which is flushed
            // anyway: beside a busy writer every flush can cost a second.
            m_live[staging.native()] = std::move(fields);
            try {
                open();
            } catch (...) {
                m_live.erase(staging.native());
                throw;
            }
            return;
        }
        writeRecord("add " + percentEncoded(staging.native()) + " " + fields + "\n");
        m_live[staging.native()] = std::move(fields);
        detail::flushData(m_files->journal.get(),
                          m_folder / detail::ownerFileName(kPrefix, m_id, ".journal"));
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
    m_files->open(m_folder, kPrefix, m_id);
    // Made afresh from what is live (after a failed write, what was there may be torn).
    rewrite();
}

void StagingJournal::writeRecord(const std::string &record)
{
    try {
        detail::appendRecord(m_files->journal.get(), record,
                             m_folder / detail::ownerFileName(kPrefix, m_id, ".journal"), false);
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
    std::string text;
    for (const auto &[staging, fields] : m_live)
        text += "add " + percentEncoded(staging) + " " + fields + "\n";
    m_files->journal = detail::replaceAtomically(
        m_files->folder.get(), detail::ownerFileName(kPrefix, m_id, ".journal"), text, m_folder);
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
    const FileDescriptor folder = detail::openJournalFolder(m_folder);
    if (!folder)
        return {};
    std::vector<fs::path> removed;
    detail::forEachGoneOwner(folder.get(), kPrefix, m_id, [&](const std::string &owner, FileDescriptor &) {
        std::string kept;
        for (fs::path &path : removeLeftovers(folder.get(), owner, kept))
            removed.push_back(std::move(path));
        if (!kept.empty())
            keepOnly(folder.get(), owner, kept);
        else
            detail::removeOwnerFiles(folder.get(), kPrefix, owner, {".journal", ".journal.new"});
    });
    return removed;
}

} // namespace quillorn
