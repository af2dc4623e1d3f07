#include "services/transferqueue.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "platform/core/receiverguard.h"
#include "services/errortext.h"

#include <QMetaObject>
#include <algorithm>
#include <thread>

namespace quillorn {

namespace {

// The speed shown for the first quarter second would be noise: a few bytes over
// a few milliseconds.
constexpr double speedSettleSeconds = 0.25;

void log(const char *event, const QString &title, const std::string &suffix = {})
{
    AppDiagnostics::shared().record(std::string("QUEUE ") + event + " title=" + title.toStdString() + suffix);
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
}

QUuid TransferQueue::enqueue(const QString &title, QueueItem::Work work)
{
    QueueItem item{QUuid::createUuid(), title, std::make_shared<OperationControl>(), QueueItem::waiting,
                   std::move(work)};
    const QUuid id = item.id;
    m_items.push_back(std::move(item));
    log("ADDED", title);
    Q_EMIT itemsChanged();
    startNext();
    return id;
}

void TransferQueue::cancel(const QUuid &id)
{
    QueueItem *item = find(id);
    if (!item)
        return;
    item->control->cancel();
    if (item->state == QueueItem::waiting) {
        item->state = QueueItem::cancelled;
        Q_EMIT itemsChanged();
    }
}

void TransferQueue::clearFinished()
{
    const auto removed = std::erase_if(m_items, [](const QueueItem &item) { return item.isFinished(); });
    if (removed > 0)
        Q_EMIT itemsChanged();
}

bool TransferQueue::hasWork() const
{
    return std::any_of(m_items.begin(), m_items.end(),
                       [](const QueueItem &item) { return !item.isFinished(); });
}

QueueItem *TransferQueue::find(const QUuid &id)
{
    auto it =
        std::find_if(m_items.begin(), m_items.end(), [&](const QueueItem &item) { return item.id == id; });
    return it == m_items.end() ? nullptr : &*it;
}

void TransferQueue::startNext()
{
    if (m_running)
        return;
    auto next = std::find_if(m_items.begin(), m_items.end(),
                             [](const QueueItem &item) { return item.state == QueueItem::waiting; });
    if (next == m_items.end())
        return;

    next->state = QueueItem::running;
    m_current = next->control;
    setRunning(true);
    publishProgress({0, 0, "Preparing"}, 0);
    Q_EMIT itemsChanged();

    m_started.start();
    log("START", next->title);
    m_timer->start();

    // The worker gets its own copy of the job: the list may change while it runs.
    std::thread([item = *next, receiver = m_receiver, queue = this] {
        const Outcome outcome = runWork(item);
        receiver->post([queue, outcome] { queue->finish(outcome); });
    }).detach();
}

TransferQueue::Outcome TransferQueue::runWork(const QueueItem &item)
{
    try {
        item.work(*item.control);
    } catch (const CancellationError &) {
        log("CANCELLED", item.title);
        return {item.id, QueueItem::cancelledWhileRunning};
    } catch (...) {
        const std::exception_ptr error = std::current_exception();
        log("FAILED", item.title, " error=" + AppDiagnostics::describe(error));
        return {item.id, QueueItem::failedPrefix + userFacingDescription(error)};
    }
    log("COMPLETE", item.title);
    return {item.id, QueueItem::complete};
}

void TransferQueue::poll()
{
    if (!m_current)
        return;
    const OperationControl::Progress progress = m_current->progress();
    const double elapsed = static_cast<double>(m_started.nsecsElapsed()) / 1e9;
    publishProgress(progress,
                    elapsed > speedSettleSeconds ? static_cast<double>(progress.completed) / elapsed : 0);
}

void TransferQueue::finish(const Outcome &outcome)
{
    if (m_current) {
        const OperationControl::Progress progress = m_current->progress();
        const double elapsed = static_cast<double>(m_started.nsecsElapsed()) / 1e9;
        publishProgress(progress, elapsed > 0 ? static_cast<double>(progress.completed) / elapsed : 0);
    }
    if (QueueItem *item = find(outcome.id)) {
        item->state = outcome.state;
        Q_EMIT itemsChanged();
    }
    m_timer->stop();
    m_current.reset();
    setRunning(false);
    if (m_completed)
        m_completed();
    startNext();
}

void TransferQueue::publishProgress(const OperationControl::Progress &progress, double bytesPerSecond)
{
    if (m_bytes != progress.completed) {
        m_bytes = progress.completed;
        Q_EMIT bytesChanged();
    }
    if (m_total != progress.expected) {
        m_total = progress.expected;
        Q_EMIT totalChanged();
    }
    if (m_bytesPerSecond != bytesPerSecond) {
        m_bytesPerSecond = bytesPerSecond;
        Q_EMIT bytesPerSecondChanged();
    }
    const QString detail = QString::fromStdString(progress.detail);
    if (m_detail != detail) {
        m_detail = detail;
        Q_EMIT detailChanged();
    }
}

void TransferQueue::setRunning(bool running)
{
    if (m_running == running)
        return;
    m_running = running;
    Q_EMIT runningChanged();
}

} // namespace quillorn
