#pragma once

#include "services/detail/journaltext.h"

#include <QUuid>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace quillorn {

// The queue's record of its unfinished jobs, kept on disk so that the next
// start can offer to run again what a killed, crashed or powered-off Quillorn
// left undone. It stores what each job is (kind, sources, destination, policy)
// and which sources it already published; never file contents.
//
// Like the staging journal, each instance owns two files in its folder, named
// after the process and a random part: "jobs-ID.lock", flock-held for as long
// as it lives (so a journal whose lock can be taken belongs to a Quillorn that
// is gone, and two running ones never take each other's jobs), and
// "jobs-ID.journal", rewritten whole at each change of the queue: temporary
// file, fsync, rename, fsync of the folder. The queue's changes are written by
// a thread of the journal's own, so the interface never waits on a disk busy
// with a copy. What a job publishes item by item is appended to
// "jobs-ID.publications" instead, so a job of many items costs one short
// append each rather than a rewrite that grows with every item; each intent to
// publish is on disk before the worker goes on to the rename, and the next
// rewrite takes the log's records in and empties it.
class JobJournal {
public:
    using Entry = detail::JournalEntry;
    using Path = std::filesystem::path;

    // The journal in $XDG_STATE_HOME/Quillorn (else ~/.local/state/Quillorn).
    static std::shared_ptr<JobJournal> open();

    // Nothing is created until the first change is written.
    explicit JobJournal(Path folder);
    // Writes what is pending. A journal left with no jobs is deleted; one with
    // jobs stays for the next start.
    ~JobJournal();
    JobJournal(const JobJournal &) = delete;
    JobJournal &operator=(const JobJournal &) = delete;

    const Path &folder() const { return m_folder; }

    // The unfinished jobs, in queue order (their published sources are kept
    // from what was recorded). Written soon, on the journal's thread.
    void save(std::vector<Entry> jobs);
    // Worker thread: the job is about to publish an item by a rename. Written
    // before returning, so a kill right after the rename still finds it.
    // Never throws: a journal that cannot be written is logged once.
    void publishing(const QUuid &id, const PublishIntent &intent) noexcept;
    // Several intents at once, on disk together before returning: one write
    // where a job announces many renames ahead (the cycles of a multi-rename).
    void publishing(const QUuid &id, const std::vector<PublishIntent> &intents) noexcept;
    // Worker thread: the job published this source. On disk before returning
    // where the intent could not seal the copy; otherwise soon.
    // Never throws: a journal that cannot be written is logged once.
    void published(const QUuid &id, const Path &source) noexcept;
    // What the job recorded as publishing or published so far.
    std::vector<JobRunner::Publication> publishedBy(const QUuid &id) const;
    // Waits until everything saved so far is on disk (or failed to be written).
    void flush();

    // The jobs that Quillorns which are gone left unfinished, oldest journal
    // first. They become this journal's own (written) before their journals
    // are deleted, so a crash in between loses nothing. A journal that cannot
    // be read or is damaged is set aside as "damaged-jobs-ID.journal" and
    // logged ("JOB JOURNAL SET ASIDE"); the rest are still taken.
    std::vector<Entry> recover();

private:
    void writerLoop();
    // False when the latest state could not be written.
    bool writeLatest() noexcept;
    void write(const std::string &text);
    void openFiles();
    // Adds a publication to the job and to the log appended between rewrites.
    void record(const QUuid &id, const std::vector<JobRunner::Publication> &publications,
                bool durable) noexcept;
    void append(const std::string &line, bool durable);
    void reportOnce(const std::exception &error) noexcept;

    const Path m_folder;
    const std::string m_id;

    mutable std::mutex m_lock; // guards the fields below it
    std::vector<Entry> m_jobs;
    std::uint64_t m_version = 0, m_written = 0;
    bool m_stopping = false;
    std::condition_variable m_changed, m_caughtUp;

    std::mutex m_writeLock; // one write at a time, in version order
    struct Files;           // the open folder and lock
    std::unique_ptr<Files> m_files;
    std::string m_lastText;
    std::atomic<bool> m_reported = false;
    std::thread m_writer;
};

} // namespace quillorn
