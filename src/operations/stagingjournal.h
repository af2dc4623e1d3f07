#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace quillorn {

// Which staging items this process has made, kept on disk so that the next
// start can remove those of a Quillorn that was killed during a copy.
//
// Each instance owns two files in the folder, named after the process and a
// random part: "staging-ID.lock", which it holds an flock on for as long as it
// lives (so "lock obtainable" means "owner gone", whatever became of its process
// id), and "staging-ID.journal", one record per line: "add STAGING TARGET MOUNT
// FSID" (MOUNT and FSID mark the volume of the staging item's folder) or "remove
// STAGING", paths percent-encoded so that any byte string round-trips.
// Records are appended; the journal is emptied when nothing is live and rewritten
// atomically (temporary file, fsync, rename, fsync of the folder) when it grows.
class StagingJournal {
public:
    // The process's journal in $XDG_STATE_HOME/Quillorn (else ~/.local/state/Quillorn).
    static StagingJournal &shared();

    // Nothing is created until the first add().
    explicit StagingJournal(std::filesystem::path folder);
    // A journal with nothing live is deleted; one with live entries is left for recover().
    ~StagingJournal();
    StagingJournal(const StagingJournal &) = delete;
    StagingJournal &operator=(const StagingJournal &) = delete;

    const std::filesystem::path &folder() const { return m_folder; }

    // Durably records (written and flushed before returning) that this process is
    // about to create staging (an absolute path ending in ".quillorn-" + an upper-case
    // UUID) that will become target. Never throws: a journal that cannot be written
    // is logged once and the copy goes on.
    void add(const std::filesystem::path &staging, const std::filesystem::path &target) noexcept;
    // Forgets staging (published or removed). Never throws.
    void remove(const std::filesystem::path &staging) noexcept;

    // Removes the staging items recorded by owners that are gone, logging
    // "STAGING REMOVED staging=PATH target=PATH" for each (or "STAGING REMOVE FAILED
    // ... error=..."), drops their journals and returns the removed paths. An entry
    // of an owner that still runs is never touched, nor an item whose name is not
    // exactly ".quillorn-" + an upper-case UUID or that no longer exists. An entry
    // whose item cannot be found while its volume is not mounted where it was is
    // kept in its owner's journal for a later start: the item may be there again.
    std::vector<std::filesystem::path> recover();

private:
    void open();
    void writeRecord(const std::string &record);
    void rewrite();
    void reportOnce(const std::exception &error) noexcept;

    std::mutex m_lock;
    const std::filesystem::path m_folder;
    const std::string m_id;
    struct Files; // the open folder, lock and journal
    std::unique_ptr<Files> m_files;
    std::map<std::string, std::string> m_live; // staging -> the rest of its add record
    std::size_t m_journalBytes = 0, m_records = 0;
    std::atomic<bool> m_reported = false;
};

} // namespace quillorn
