#pragma once

#include "services/queueitem.h"
#include "services/queuejob.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <type_traits>
#include <vector>

namespace quillorn {

class JobJournal;
class ReceiverGuard;

// Runs long file operations one at a time, in list order, each on its own
// detached background thread, and publishes what the queue view shows: the jobs
// with their states, whether one runs, and the running job's bytes, total,
// average speed and current step. A timer on the interface thread copies the
// running job's progress out of its OperationControl; the job's outcome comes
// back as a queued call. All members are used on the interface thread only.
//
// The running job can be paused: its work holds still at its next check and
// nothing else starts until it is resumed or cancelled. Waiting jobs can be
// reordered behind it. With a journal, every unfinished job is kept on disk,
// and the jobs a previous run left unfinished come back as "Interrupted" for
// the user to resume or discard; nothing starts by itself.
//
// A job still running when the queue is destroyed is told to stop; its outcome
// is then dropped, since nothing is left to show it, and its journal entry
// stays for the next start.
class TransferQueue : public QObject {
    Q_OBJECT
public:
    static constexpr int defaultPollIntervalMs = 150;

    explicit TransferQueue(QObject *parent = nullptr, int pollIntervalMs = defaultPollIntervalMs);
    ~TransferQueue() override;

    const std::vector<QueueItem> &items() const { return m_items; }
    // A job's work is executing, or held paused.
    bool running() const { return m_running; }
    std::int64_t bytes() const { return m_bytes; }
    std::int64_t total() const { return m_total; }
    // Average since the running job started, its paused time left out.
    double bytesPerSecond() const { return m_bytesPerSecond; }
    const QString &detail() const { return m_detail; }
    // The running job's items (files, links, folders) done and to do, where it counts them.
    std::int64_t itemsDone() const { return m_itemsDone; }
    std::int64_t itemsTotal() const { return m_itemsTotal; }

    // The running job's time left at its average speed; nothing while its
    // total is unknown or no speed has been measured.
    std::optional<double> secondsLeft() const;
    // The bytes of all waiting jobs together, once every one of them is
    // measured; nothing without waiting jobs.
    std::optional<std::int64_t> waitingBytes() const;
    // Their time at the latest average speed, when both are known.
    std::optional<double> waitingSecondsLeft() const;

    // Called on the interface thread after every job that ends, whatever its
    // outcome, with the job as it ended.
    using Completed = std::function<void(const QueueItem &finished)>;
    void setCompleted(Completed completed) { m_completed = std::move(completed); }
    // The engine jobs run with (tests slow it down or stand in for the Trash).
    void setRunner(JobRunner runner) { m_runner = std::move(runner); }
    // Keeps every unfinished job in the journal from now on.
    void setJournal(std::shared_ptr<JobJournal> journal);
    // On a background thread: runs `before` (the removal of staging items left
    // by a crash), then takes the jobs the journal's dead owners left and shows
    // them as "Interrupted". Needs a journal.
    void recoverInterrupted(std::function<void()> before = {});

    // Appends a waiting job and starts it at once when the queue is idle.
    QUuid enqueue(const QString &title, Job job);
    // Work given as a function: run like any job, never journaled.
    template <class Work>
    requires(!std::is_convertible_v<Work, Job> && std::is_invocable_v<Work &, OperationControl &>) QUuid
        enqueue(const QString &title, Work work)
    {
        return enqueue(title, Job(OpaqueJob{std::move(work)}));
    }
    // Stops a job: a waiting or interrupted one becomes "Cancelled" and never
    // runs; a running or paused one keeps its state until its work notices the
    // stop. Unknown ids are ignored.
    void cancel(const QUuid &id);
    // The running job holds still ("Paused") until resume(); logged.
    void pause(const QUuid &id);
    // A paused job runs on; an interrupted one waits for its turn, to be run
    // again without redoing what it finished.
    void resume(const QUuid &id);
    // Forgets an interrupted job: its row and its journal entry go.
    void discard(const QUuid &id);
    // Moves a waiting job to position `index` of the list, never ahead of the
    // running job. False when the job is not waiting or nothing changed.
    bool move(const QUuid &id, int index);
    // Swaps a waiting job with the nearest waiting job above (-1) or below (+1).
    bool moveAmongWaiting(const QUuid &id, int direction);
    // Drops every finished job; the others keep their order.
    void clearFinished();
    // True while any job waits, runs or is paused (the quit guard asks this).
    bool hasWork() const;

Q_SIGNALS:
    void itemsChanged();
    void runningChanged();
    void bytesChanged();
    void totalChanged();
    void bytesPerSecondChanged();
    void detailChanged();
    void itemCountChanged();

private:
    struct Outcome {
        QUuid id;
        JobState state = JobState::failed;
        QString failure;
        QString remark;
        std::vector<std::filesystem::path> made;
        std::optional<UndoJob> undo;
    };

    void startNext();
    void poll();
    void finish(const Outcome &outcome);
    void adopt(const std::vector<QueueItem> &items);
    void measure(const QueueItem &item);
    void measured(const QUuid &id, std::int64_t total);
    void publishProgress(const OperationControl::Progress &progress, double bytesPerSecond);
    void setRunning(bool running);
    // Publishes a change of the list and brings the journal up to date.
    void changed();
    double activeSeconds() const;
    QueueItem *find(const QUuid &id);

    static Outcome runWork(const QueueItem &item, const JobRunner &runner,
                           const std::shared_ptr<JobJournal> &journal);

    std::vector<QueueItem> m_items;
    bool m_running = false;
    std::int64_t m_bytes = 0;
    std::int64_t m_total = 0;
    double m_bytesPerSecond = 0;
    QString m_detail;
    std::int64_t m_itemsDone = 0;
    std::int64_t m_itemsTotal = 0;
    Completed m_completed;

    JobRunner m_runner;
    std::shared_ptr<JobJournal> m_journal;
    std::map<QUuid, std::shared_ptr<OperationControl>> m_measuring;
    int m_pollIntervalMs;
    QTimer *m_timer = nullptr;
    QElapsedTimer m_started, m_pauseStarted;
    std::int64_t m_pausedNs = 0;
    std::shared_ptr<OperationControl> m_current;
    std::shared_ptr<ReceiverGuard> m_receiver;
};

} // namespace quillorn
