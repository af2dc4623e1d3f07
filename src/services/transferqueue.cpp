#include "services/transferqueue.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "platform/core/displaytext.h"
#include "platform/core/receiverguard.h"
#include "services/errortext.h"
#include "services/jobjournal.h"

#include <QMetaObject>
#include <algorithm>
#include <thread>
#include <utility>

namespace quillorn {

namespace {

// The speed shown for the first quarter second would be noise: a few bytes over
// a few milliseconds.
constexpr double speedSettleSeconds = 0.25;

void log(const char *event, const QString &title, const std::string &suffix = {})
{
    AppDiagnostics::shared().record(std::string("QUEUE ") + event +
                                    " title=" + detail::logText(title.toStdString()) + suffix);
}

// What the row says of moved sources a resumed job left in place; the log
// names each one.
QString quoted(const std::filesystem::path &path)
{
    return "\u2018" + displayName(path) + "\u2019";
}

// A "Complete" that did nothing: every item was skipped for a name that exists.
QString skippedRemark(const JobRunner::Result &result)
{
    if (result.skipped.empty())
        return {};
    const QString what = result.move ? QStringLiteral("moved") : QStringLiteral("copied");
    const QString where = quoted(result.destination);
    if (result.skipped.size() == 1)
        return "Nothing was " + what + ": " + quoted(result.skipped.front()) + " already exists in " + where +
               " and was skipped.";
    return "Nothing was " + what + ": all " + QString::number(result.skipped.size()) +
           " items already exist in " + where + " and were skipped.";
}

// Steps of a synchronisation passed over: the first by name and reason.
QString syncRemark(const std::vector<std::pair<std::filesystem::path, std::string>> &skipped)
{
    if (skipped.empty())
        return {};
    const QString first = quoted(skipped.front().first) +
                          " was skipped: " + QString::fromStdString(skipped.front().second) + ".";
    if (skipped.size() == 1)
        return first;
    return first + " " + QString::number(skipped.size() - 1) + " more items were skipped too (see the log).";
}

QString keptRemark(const std::vector<JobRunner::KeptSource> &kept)
{
    if (kept.empty())
        return {};
    if (kept.size() == 1)
        return "\u2018" + QString::fromStdString(kept.front().source.filename().string()) +
               "\u2019 was left where it was: " + QString::fromStdString(kept.front().reason) + ".";
    return QString::number(kept.size()) +
           " moved items were left where they were: they or their copies changed. See the log.";
}

// The items a rename, a multi-rename, a new folder or an undo leaves, known
// from the job itself; a transfer tells its own as it publishes them.
std::vector<std::filesystem::path> namedBeforehand(const Job &job)
{
    if (const auto *rename = std::get_if<RenameJob>(&job))
        return {rename->item.parent_path() / rename->name};
    if (const auto *folder = std::get_if<NewFolderJob>(&job))
        return {folder->folder / folder->name};
    if (const auto *renames = std::get_if<MultiRenameJob>(&job)) {
        std::vector<std::filesystem::path> made;
        for (const auto &[from, to] : renames->names)
            if (from != to)
                made.push_back(renames->folder / to);
        return made;
    }
    if (const auto *undo = std::get_if<UndoJob>(&job))
        return itemsPutBack(*undo);
    return {};
}

} // namespace

TransferQueue::TransferQueue(QObject *parent, int pollIntervalMs)
    : QObject(parent), m_pollIntervalMs(pollIntervalMs), m_timer(new QTimer(this)),
      m_receiver(ReceiverGuard::create(this))
{
    m_timer->setInterval(m_pollIntervalMs);
    connect(m_timer, &QTimer::timeout, this, &TransferQueue::poll);
}

TransferQueue::~TransferQueue()
{
    m_receiver->release();
    for (const QueueItem &item : m_items)
        item.control->cancel();
    for (const auto &[id, control] : m_measuring)
        control->cancel();
}

void TransferQueue::setJournal(std::shared_ptr<JobJournal> journal)
{
    m_journal = std::move(journal);
    changed();
}

void TransferQueue::recoverInterrupted(std::function<void()> before)
{
    std::thread([before = std::move(before), journal = m_journal, receiver = m_receiver,
                 queue = this]() mutable {
        // In this order: a job is offered again only once the staging items of
        // its killed run are gone.
        if (before)
            before();
        if (!journal)
            return;
        std::vector<QueueItem> items;
        for (JobJournal::Entry &entry : journal->recover())
            items.push_back({entry.id,
                             entry.title,
                             std::make_shared<OperationControl>(),
                             JobState::interrupted,
                             {},
                             std::move(entry.job),
                             std::nullopt,
                             true,
                             {},
                             {},
                             {}});
        journal.reset(); // the queue's to destroy, as above
        receiver->post([queue, items = std::move(items)] { queue->adopt(items); });
    }).detach();
}

void TransferQueue::adopt(const std::vector<QueueItem> &items)
{
    for (const QueueItem &item : items) {
        if (find(item.id))
            continue;
        log("INTERRUPTED", item.title);
        m_items.push_back(item);
    }
    if (!items.empty())
        changed();
}

QUuid TransferQueue::enqueue(const QString &title, Job job)
{
    QueueItem item{QUuid::createUuid(),
                   title,
                   std::make_shared<OperationControl>(),
                   JobState::waiting,
                   {},
                   std::move(job),
                   std::nullopt,
                   false,
                   {},
                   {},
                   {}};
    const QUuid id = item.id;
    m_items.push_back(std::move(item));
    log("ADDED", title);
    changed();
    startNext();
    if (const QueueItem *added = find(id); added && added->state == JobState::waiting)
        measure(*added);
    return id;
}

void TransferQueue::cancel(const QUuid &id)
{
    QueueItem *item = find(id);
    if (!item)
        return;
    item->control->cancel();
    if (item->state == JobState::waiting || item->state == JobState::interrupted) {
        item->state = JobState::cancelled;
        changed();
    }
}

void TransferQueue::pause(const QUuid &id)
{
    QueueItem *item = find(id);
    if (!item || item->state != JobState::running)
        return;
    item->control->pause();
    item->state = JobState::paused;
    m_pauseStarted.start();
    log("PAUSED", item->title);
    changed();
}

void TransferQueue::resume(const QUuid &id)
{
    QueueItem *item = find(id);
    if (!item)
        return;
    if (item->state == JobState::paused) {
        m_pausedNs += m_pauseStarted.nsecsElapsed();
        item->control->resume();
        item->state = JobState::running;
        log("RESUMED", item->title);
        changed();
    } else if (item->state == JobState::interrupted) {
        item->state = JobState::waiting;
        log("RESUMED", item->title);
        changed();
        startNext();
        if (const QueueItem *waiting = find(id); waiting && waiting->state == JobState::waiting)
            measure(*waiting);
    }
}

void TransferQueue::discard(const QUuid &id)
{
    const auto it =
        std::find_if(m_items.begin(), m_items.end(), [&](const QueueItem &item) { return item.id == id; });
    if (it == m_items.end() || it->state != JobState::interrupted)
        return;
    log("DISCARDED", it->title);
    m_items.erase(it);
    changed();
}

bool TransferQueue::move(const QUuid &id, int index)
{
    const auto from =
        std::find_if(m_items.begin(), m_items.end(), [&](const QueueItem &item) { return item.id == id; });
    if (from == m_items.end() || from->state != JobState::waiting)
        return false;
    // The running job stays ahead of every waiting one.
    const auto active =
        std::find_if(m_items.begin(), m_items.end(), [](const QueueItem &item) { return item.isActive(); });
    const int first = active == m_items.end() ? 0 : int(active - m_items.begin()) + 1;
    const int source = int(from - m_items.begin());
    const int target = std::clamp(index, first, int(m_items.size()) - 1);
    if (target == source)
        return false;
    QueueItem moved = std::move(*from);
    m_items.erase(from);
    m_items.insert(m_items.begin() + target, std::move(moved));
    changed();
    return true;
}

bool TransferQueue::moveAmongWaiting(const QUuid &id, int direction)
{
    const auto at =
        std::find_if(m_items.begin(), m_items.end(), [&](const QueueItem &item) { return item.id == id; });
    if (at == m_items.end() || direction == 0)
        return false;
    const int step = direction < 0 ? -1 : 1;
    for (int index = int(at - m_items.begin()) + step; index >= 0 && index < int(m_items.size());
         index += step)
        if (m_items[std::size_t(index)].state == JobState::waiting)
            return move(id, index);
    return false;
}

void TransferQueue::clearFinished()
{
    const auto removed = std::erase_if(m_items, [](const QueueItem &item) { return item.isFinished(); });
    if (removed > 0)
        changed();
}

bool TransferQueue::hasWork() const
{
    return std::any_of(m_items.begin(), m_items.end(),
                       [](const QueueItem &item) { return item.isUnfinished(); });
}

std::optional<double> TransferQueue::secondsLeft() const
{
    if (!m_running || m_total < 1 || m_bytesPerSecond <= 0)
        return std::nullopt;
    return double(std::max<std::int64_t>(m_total - m_bytes, 0)) / m_bytesPerSecond;
}

std::optional<std::int64_t> TransferQueue::waitingBytes() const
{
    std::optional<std::int64_t> sum;
    for (const QueueItem &item : m_items) {
        if (item.state != JobState::waiting)
            continue;
        if (!item.total)
            return std::nullopt;
        sum = sum.value_or(0) + *item.total;
    }
    return sum;
}

std::optional<double> TransferQueue::waitingSecondsLeft() const
{
    const std::optional<std::int64_t> bytes = waitingBytes();
    if (!bytes || m_bytesPerSecond <= 0)
        return std::nullopt;
    return double(*bytes) / m_bytesPerSecond;
}

QueueItem *TransferQueue::find(const QUuid &id)
{
    auto it =
        std::find_if(m_items.begin(), m_items.end(), [&](const QueueItem &item) { return item.id == id; });
    return it == m_items.end() ? nullptr : &*it;
}

void TransferQueue::changed()
{
    Q_EMIT itemsChanged();
    if (!m_journal)
        return;
    std::vector<JobJournal::Entry> entries;
    for (const QueueItem &item : m_items)
        if ((item.isUnfinished() || item.state == JobState::interrupted) && JobRunner::storable(item.job))
            entries.push_back({item.id, item.title, item.job, {}});
    m_journal->save(std::move(entries));
}

void TransferQueue::measure(const QueueItem &item)
{
    if (item.total || !JobRunner::storable(item.job))
        return;
    auto control = std::make_shared<OperationControl>();
    m_measuring[item.id] = control;
    std::thread([job = item.job, id = item.id, control, receiver = m_receiver, queue = this] {
        std::int64_t total = 0;
        try {
            total = JobRunner::measure(job, *control).value_or(0);
        } catch (const CancellationError &) {
            return;
        } catch (...) {
            // Sources that cannot be measured fail the job when it runs; until
            // then they count for nothing.
        }
        receiver->post([queue, id, total] { queue->measured(id, total); });
    }).detach();
}

void TransferQueue::measured(const QUuid &id, std::int64_t total)
{
    m_measuring.erase(id);
    if (QueueItem *item = find(id)) {
        item->total = total;
        Q_EMIT itemsChanged();
    }
}

void TransferQueue::startNext()
{
    if (m_running)
        return;
    auto next = std::find_if(m_items.begin(), m_items.end(),
                             [](const QueueItem &item) { return item.state == JobState::waiting; });
    if (next == m_items.end())
        return;

    next->state = JobState::running;
    m_current = next->control;
    publishProgress({0, 0, "Preparing"}, 0);
    setRunning(true);
    changed();

    m_started.start();
    m_pausedNs = 0;
    log("START", next->title);
    m_timer->start();

    // The worker gets its own copy of the job: the list may change while it runs.
    std::thread([item = *next, runner = m_runner, journal = m_journal, receiver = m_receiver,
                 queue = this]() mutable {
        Outcome outcome;
        {
            // Nothing of the job may outlive its report here: the program may
            // end as soon as the report arrives, and the journal must then be
            // destroyed by the queue, which deletes its files, not lost with
            // this thread.
            const QueueItem own = std::move(item);
            const std::shared_ptr<JobJournal> record = std::move(journal);
            outcome = runWork(own, runner, record);
            own.control->onPublishing({});
            own.control->onPublished({});
        }
        receiver->post([queue, outcome] { queue->finish(outcome); });
    }).detach();
}

TransferQueue::Outcome TransferQueue::runWork(const QueueItem &item, const JobRunner &runner,
                                              const std::shared_ptr<JobJournal> &journal)
{
    JobRunner::Result result;
    // Told on this thread, while the job runs.
    std::vector<std::filesystem::path> made = namedBeforehand(item.job);
    std::vector<PublishIntent> intents, published;
    try {
        JobRunner::Earlier earlier;
        const bool journaled = journal && JobRunner::storable(item.job);
        // Recorded before a moved source is removed, so a crash right after a
        // publish still finds it done at the next start.
        item.control->onPublishing(
            [&intents, journal, journaled, id = item.id](const std::vector<PublishIntent> &told) {
                if (journaled)
                    journal->publishing(id, told);
                intents.insert(intents.end(), told.begin(), told.end());
            });
        if (journaled && item.rerun)
            earlier.published = journal->publishedBy(item.id);
        item.control->onPublished([&](const auto &source, const auto &target) {
            if (journaled)
                journal->published(item.id, source);
            made.push_back(target);
            const auto intent =
                std::find_if(intents.rbegin(), intents.rend(), [&](const PublishIntent &told) {
                    return told.source == source && told.target == target;
                });
            published.push_back(intent != intents.rend() ? *intent
                                                         : PublishIntent{source, {}, target, {}, {}});
        });
        result = runner.run(item.job, *item.control, item.rerun ? &earlier : nullptr);
    } catch (const CancellationError &) {
        log("CANCELLED", item.title);
        return {item.id, JobState::cancelledWhileRunning, {}, {}, {}, {}};
    } catch (...) {
        const std::exception_ptr error = std::current_exception();
        log("FAILED", item.title, " error=" + AppDiagnostics::describe(error));
        return {item.id, JobState::failed, userFacingDescription(error), {}, {}, {}};
    }
    // Only a whole first run can be undone: one resumed after a crash did part
    // of its work in a run whose items nobody sealed.
    std::optional<UndoJob> undo;
    if (!item.rerun) {
        try {
            undo = JobRunner::undoOf(item.job, result, published, *item.control);
        } catch (...) {
            // The work is done all the same; it only cannot be undone.
        }
    }
    log("COMPLETE", item.title);
    made.insert(made.end(), result.restored.begin(), result.restored.end());
    if (result.made)
        made.push_back(*result.made);
    QString remark = skippedRemark(result);
    if (const QString kept = keptRemark(result.kept); !kept.isEmpty())
        remark = remark.isEmpty() ? kept : remark + " " + kept;
    if (const QString sync = syncRemark(result.syncSkipped); !sync.isEmpty())
        remark = remark.isEmpty() ? sync : remark + " " + sync;
    return {item.id, JobState::complete, {}, remark, std::move(made), std::move(undo)};
}

double TransferQueue::activeSeconds() const
{
    std::int64_t paused = m_pausedNs;
    if (m_current && m_current->isPaused())
        paused += m_pauseStarted.nsecsElapsed();
    return double(m_started.nsecsElapsed() - paused) / 1e9;
}

void TransferQueue::poll()
{
    if (!m_current)
        return;
    const OperationControl::Progress progress = m_current->progress();
    const double elapsed = activeSeconds();
    publishProgress(progress,
                    elapsed > speedSettleSeconds ? static_cast<double>(progress.completed) / elapsed : 0);
}

void TransferQueue::finish(const Outcome &outcome)
{
    if (m_current) {
        const OperationControl::Progress progress = m_current->progress();
        const double elapsed = activeSeconds();
        publishProgress(progress, elapsed > 0 ? static_cast<double>(progress.completed) / elapsed : 0);
    }
    QueueItem ended;
    if (QueueItem *item = find(outcome.id)) {
        item->state = outcome.state;
        item->failure = outcome.failure;
        item->remark = outcome.remark;
        item->made = outcome.made;
        item->undo = outcome.undo;
        ended = *item;
    }
    changed();
    m_timer->stop();
    m_current.reset();
    setRunning(false);
    if (m_completed)
        m_completed(ended);
    startNext();
}

void TransferQueue::publishProgress(const OperationControl::Progress &progress, double bytesPerSecond)
{
    // All fields first, then the signals: a listener must never see the new
    // bytes against the total of the previous job.
    const QString detail = QString::fromStdString(progress.detail);
    const bool bytes = std::exchange(m_bytes, progress.completed) != progress.completed;
    const bool total = std::exchange(m_total, progress.expected) != progress.expected;
    const bool speed = std::exchange(m_bytesPerSecond, bytesPerSecond) != bytesPerSecond;
    const bool step = std::exchange(m_detail, detail) != detail;
    const bool done = std::exchange(m_itemsDone, progress.itemsDone) != progress.itemsDone;
    const bool items = std::exchange(m_itemsTotal, progress.itemsExpected) != progress.itemsExpected || done;
    if (bytes)
        Q_EMIT bytesChanged();
    if (total)
        Q_EMIT totalChanged();
    if (speed)
        Q_EMIT bytesPerSecondChanged();
    if (step)
        Q_EMIT detailChanged();
    if (items)
        Q_EMIT itemCountChanged();
}

void TransferQueue::setRunning(bool running)
{
    if (m_running == running)
        return;
    m_running = running;
    Q_EMIT runningChanged();
}

} // namespace quillorn
