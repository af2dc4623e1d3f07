#include "operations/savebackupjournal.h"

#include "operations/appdiagnostics.h"
#include "operations/detail/journalfile.h"
#include "operations/detail/logtext.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/ownerlocks.h"
#include "platform/posix/percentencoding.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/stagingname.h"
#include "platform/posix/userfolders.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <sstream>

namespace fs = std::filesystem;

namespace quillorn {
namespace {

constexpr std::string_view kPrefix = "backup-";

struct Entry {
    std::string target;
    std::optional<InPlaceBackup> ready; // none while the copy was still being made
};

// The live entries a journal's text leaves. A last line without its line feed
// was being written when the owner died: its call never returned, so the step
// it records never began (no copy made, or no byte of the file overwritten).
std::map<std::string, Entry> liveEntries(const std::string &text)
{
    std::map<std::string, Entry> live;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        std::istringstream line(text.substr(start, end - start));
        std::string verb, backup;
        line >> verb >> backup;
        const std::optional<std::string> backupBytes = percentDecoded(backup);
        if (!backupBytes || backupBytes->empty())
            continue;
        if (verb == "add") {
            std::string target;
            line >> target;
            if (const std::optional<std::string> targetBytes = percentDecoded(target); targetBytes)
                live[*backupBytes] = {*targetBytes, std::nullopt};
        } else if (verb == "ready") {
            InPlaceBackup record;
            line >> record.inode >> record.oldSize >> record.newSize >> record.newDigest;
            const auto entry = live.find(*backupBytes);
            if (line && entry != live.end()) {
                record.backup = *backupBytes;
                record.target = entry->second.target;
                entry->second.ready = record;
            }
        } else if (verb == "remove") {
            live.erase(*backupBytes);
        }
    }
    return live;
}

// Settles the entries of a gone owner's journal; false when one must be tried again.
bool settle(int folder, const std::string &owner, const fs::path &keepFolder, std::vector<fs::path> &restored)
{
    const std::optional<std::string> text = detail::readOwnerJournal(folder, kPrefix, owner);
    if (!text)
        return true;
    AppDiagnostics &log = AppDiagnostics::shared();
    bool settled = true;
    for (const auto &[backup, entry] : liveEntries(*text)) {
        if (!isStagingPath(backup))
            continue;
        const std::string fields =
            " path=" + detail::logText(entry.target) + " backup=" + detail::logText(backup);
        try {
            if (!entry.ready) {
                // Never finished, so the file was never touched.
                if (::unlink(backup.c_str()) == 0)
                    log.record("SAVE BACKUP DROPPED" + fields);
                else if (errno != ENOENT)
                    throwPosixError(backup);
                continue;
            }
            const BackupRecovery recovery = recoverInPlaceWrite(*entry.ready, keepFolder);
            switch (recovery.outcome) {
            case BackupOutcome::missing:
                break;
            case BackupOutcome::restored:
                log.record("SAVE RESTORED" + fields +
                           (recovery.replaced.empty() ? std::string()
                                                      : " replaced=" + detail::logPath(recovery.replaced)));
                restored.emplace_back(entry.target);
                break;
            case BackupOutcome::completed:
                log.record("SAVE KEPT" + fields);
                break;
            case BackupOutcome::superseded:
                log.record("SAVE BACKUP DROPPED" + fields);
                break;
            }
        } catch (const std::exception &error) {
            log.record("SAVE RESTORE FAILED" + fields + " error=" + AppDiagnostics::describe(error));
            settled = false;
        }
    }
    return settled;
}

} // namespace

SaveBackupJournal &SaveBackupJournal::shared()
{
    // Never destroyed: a save on a worker thread may still record while the process exits.
    static SaveBackupJournal *const instance = new SaveBackupJournal(stateHome() / "Quillorn");
    return *instance;
}

struct SaveBackupJournal::Files : detail::OwnerFiles {
    FileDescriptor journal;
};

SaveBackupJournal::SaveBackupJournal(fs::path folder)
    : m_folder(std::move(folder)), m_id(newOwnerId()), m_files(std::make_unique<Files>())
{
}

SaveBackupJournal::~SaveBackupJournal()
{
    if (!m_live.empty() || !m_files->folder)
        return;
    detail::removeOwnerFiles(m_files->folder.get(), kPrefix, m_id, {".journal"});
}

BackupWatch SaveBackupJournal::watch()
{
    return {spareFolder(), [this](const fs::path &backup, const fs::path &target) { add(backup, target); },
            [this](const InPlaceBackup &record) { ready(record); },
            [this](const fs::path &backup) { remove(backup); }};
}

void SaveBackupJournal::add(const fs::path &backup, const fs::path &target)
{
    std::lock_guard guard(m_lock);
    open();
    const std::string record =
        "add " + percentEncoded(backup.native()) + " " + percentEncoded(target.native()) + "\n";
    writeRecord(record, true);
    m_live[backup.native()] = record;
}

void SaveBackupJournal::ready(const InPlaceBackup &record)
{
    std::lock_guard guard(m_lock);
    const auto entry = m_live.find(record.backup.native());
    if (entry == m_live.end() || !m_files->journal)
        throwPosixError(record.backup, ENOENT); // never added: nothing would find it
    std::ostringstream line;
    line << "ready " << percentEncoded(record.backup.native()) << ' ' << record.inode << ' ' << record.oldSize
         << ' ' << record.newSize << ' ' << record.newDigest << '\n';
    writeRecord(line.str(), true);
    entry->second += line.str();
}

void SaveBackupJournal::remove(const fs::path &backup) noexcept
{
    std::lock_guard guard(m_lock);
    if (m_live.erase(backup.native()) == 0 || !m_files->journal)
        return;
    try {
        // Not flushed: a remove lost in a crash leaves an entry whose copy no
        // longer exists, which recovery passes over.
        if (m_live.empty()) {
            if (::ftruncate(m_files->journal.get(), 0) != 0)
                throwPosixError(m_folder / detail::ownerFileName(kPrefix, m_id, ".journal"));
            return;
        }
        writeRecord("remove " + percentEncoded(backup.native()) + "\n", false);
    } catch (const std::exception &error) {
        AppDiagnostics::shared().record("SAVE BACKUP JOURNAL FAILED path=" + detail::logPath(m_folder) +
                                        " error=" + AppDiagnostics::describe(error));
    }
}

void SaveBackupJournal::open()
{
    if (m_files->journal)
        return;
    m_files->open(m_folder, kPrefix, m_id);
    const std::string name = detail::ownerFileName(kPrefix, m_id, ".journal");
    FileDescriptor journal(::openat(m_files->folder.get(), name.c_str(),
                                    O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!journal)
        throwPosixError(m_folder / name);
    // Made afresh from what is live (after a failed write, what was there may be torn).
    std::string text;
    for (const auto &[backup, records] : m_live)
        text += records;
    m_files->journal = std::move(journal);
    if (!text.empty())
        writeRecord(text, true);
    if (::fsync(m_files->folder.get()) != 0)
        throwPosixError(m_folder);
}

void SaveBackupJournal::writeRecord(const std::string &record, bool durable)
{
    try {
        detail::appendRecord(m_files->journal.get(), record,
                             m_folder / detail::ownerFileName(kPrefix, m_id, ".journal"), durable);
    } catch (const PosixError &) {
        // A torn record would swallow the next one: start afresh at the next add().
        m_files->journal = FileDescriptor();
        throw;
    }
}

std::vector<fs::path> SaveBackupJournal::recover()
{
    // Nothing to do, and nothing to create, where no journal was ever kept.
    const FileDescriptor folder = detail::openJournalFolder(m_folder);
    if (!folder)
        return {};
    std::vector<fs::path> restored;
    detail::forEachGoneOwner(folder.get(), kPrefix, m_id, [&](const std::string &owner, FileDescriptor &) {
        if (settle(folder.get(), owner, replacedFolder(), restored))
            detail::removeOwnerFiles(folder.get(), kPrefix, owner, {".journal"});
    });
    return restored;
}

} // namespace quillorn
