#pragma once

#include "platform/posix/filecontents.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace quillorn {

// The copies of old bytes that in-place saves keep until the new bytes are
// flushed, recorded so that the next start gives a file whose save a killed
// Quillorn left half written its old bytes back.
//
// Each instance owns "backup-ID.lock", flocked for as long as it lives (the
// scheme of StagingJournal: a lock that can be taken means the owner is gone),
// and "backup-ID.journal", one record per line, paths percent-encoded:
//   "add BACKUP TARGET"                             before the copy is made,
//   "ready BACKUP INODE OLDSIZE NEWSIZE DIGEST"     once it is whole and flushed,
//   "remove BACKUP"                                 once it has gone.
// add and ready are flushed before they return; the journal is emptied whenever
// nothing is live.
class SaveBackupJournal {
public:
    // The process's journal in $XDG_STATE_HOME/Quillorn (else ~/.local/state/Quillorn).
    static SaveBackupJournal &shared();

    // Nothing is created until the first add().
    explicit SaveBackupJournal(std::filesystem::path folder);
    // A journal with nothing live is deleted; one with live entries is left for recover().
    ~SaveBackupJournal();
    SaveBackupJournal(const SaveBackupJournal &) = delete;
    SaveBackupJournal &operator=(const SaveBackupJournal &) = delete;

    const std::filesystem::path &folder() const { return m_folder; }
    // Where copies go whose file's folder takes no new file.
    std::filesystem::path spareFolder() const { return m_folder / "Backups"; }
    // Where recovery keeps what a file held before its old bytes went back over it.
    std::filesystem::path replacedFolder() const { return m_folder / "Replaced"; }

    // This journal as the watch of an in-place write.
    BackupWatch watch();

    // Throw PosixError when the record cannot be written and flushed: a save must
    // not overwrite a file whose copy nobody would find after a crash.
    void add(const std::filesystem::path &backup, const std::filesystem::path &target);
    void ready(const InPlaceBackup &record);
    // Never throws.
    void remove(const std::filesystem::path &backup) noexcept;

    // Settles the copies that owners which are gone left: a whole copy goes back
    // into its file unless the file already holds exactly the new bytes
    // (recoverInPlaceWrite), logging "SAVE RESTORED path=TARGET backup=BACKUP",
    // with " replaced=KEPT" when what the file held (a torn write, or another
    // program's edit since) was first kept in replacedFolder(), "SAVE KEPT ..."
    // or "SAVE BACKUP DROPPED ..." (the name holds another file now, or the copy
    // was never finished); a copy that cannot be settled, or whose file's bytes
    // cannot be kept, is logged "SAVE RESTORE FAILED ... error=..." and its
    // journal kept for the next start.
    // An entry of an owner that still runs is never touched, nor an item whose
    // name is not exactly ".quillorn-" + an upper-case UUID. Returns the files
    // given their old bytes back.
    std::vector<std::filesystem::path> recover();

private:
    void open();
    void writeRecord(const std::string &record, bool durable);

    std::mutex m_lock;
    const std::filesystem::path m_folder;
    const std::string m_id;
    struct Files; // the open folder, lock and journal
    std::unique_ptr<Files> m_files;
    std::map<std::string, std::string> m_live; // backup -> its records, to write the journal afresh from
};

} // namespace quillorn
