#pragma once

#include "operations/operationcontrol.h"
#include "services/queuejob.h"

#include <QString>
#include <QUuid>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace quillorn {

// Where a job of the transfer queue stands. Its wording for the queue row and
// the log comes from one place, QueueItem::text().
enum class JobState {
    waiting,               // added, not started
    running,               // its work is executing
    paused,                // its work holds still at its next check, keeping its place
    interrupted,           // left unfinished by an earlier run of the program
    complete,              // the work returned
    cancelled,             // cancelled before it started; it never runs
    cancelledWhileRunning, // the work ended with a cancellation
    failed,                // the work failed; the message is in `failure`
};

// One job of the transfer queue. The control is shared with the job's work
// while it runs on its background thread; everything else is read and written
// on the interface thread only.
struct QueueItem {
    using Work = std::function<void(OperationControl &)>;

    QUuid id;
    QString title;
    std::shared_ptr<OperationControl> control;
    JobState state = JobState::waiting;
    QString failure; // the error's message, for a failed job
    Job job;
    // The bytes the job will count, once measured; the running job's own total
    // comes from its control.
    std::optional<std::int64_t> total;
    // Left unfinished by an earlier run: it skips what that run got done.
    bool rerun = false;
    // What the user should know of a job that completed, such as a moved source
    // a resumed job left in place; shown after the state.
    QString remark;
    // What a complete job left under final names: the items a transfer
    // published, the renamed item, the new folder. The panes put their cursor
    // there.
    std::vector<std::filesystem::path> made;
    // What puts back the work of a complete job, where it can be undone.
    std::optional<UndoJob> undo;

    // The row's state text: "Waiting", "Running", "Paused", "Interrupted",
    // "Complete", "Cancelled", "Cancelled — previously completed items remain",
    // or "Failed: " + the message.
    static QString text(JobState state, const QString &failure = {});
    // What the job works on, so that rows with one title can be told apart:
    // "‘report.pdf’", "‘a.txt’ and 2 more"; empty for work given as a function.
    QString carries() const;
    QString stateText() const
    {
        return remark.isEmpty() ? text(state, failure) : text(state, failure) + " \u2014 " + remark;
    }

    // Waiting, running and paused jobs are still to be done; the quit guard
    // counts them as work. An interrupted job waits for the user's decision.
    bool isUnfinished() const
    {
        return state == JobState::waiting || state == JobState::running || state == JobState::paused;
    }
    // Complete, cancelled and failed jobs have ended; "Clear finished" drops them.
    bool isFinished() const { return !isUnfinished() && state != JobState::interrupted; }
    // The running job, paused or not.
    bool isActive() const { return state == JobState::running || state == JobState::paused; }
};

} // namespace quillorn
