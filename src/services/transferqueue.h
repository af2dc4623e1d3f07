#pragma once

#include "services/queueitem.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace quillorn {

class ReceiverGuard;

// Runs long file operations one at a time, in the order added, each on its own
// detached background thread, and publishes what the queue view shows: the jobs
// with their state texts, whether one runs, and the running job's bytes, total,
// average speed and current step. A timer on the interface thread copies the
// running job's progress out of its OperationControl; the job's outcome comes
// back as a queued call. All members are used on the interface thread only.
//
// A job still running when the queue is destroyed is told to stop; its outcome
// is then dropped, since nothing is left to show it.
class TransferQueue : public QObject {
    Q_OBJECT
public:
    static constexpr int defaultPollIntervalMs = 150;

    explicit TransferQueue(QObject *parent = nullptr, int pollIntervalMs = defaultPollIntervalMs);
    ~TransferQueue() override;

    const std::vector<QueueItem> &items() const { return m_items; }
    bool running() const { return m_running; }
    std::int64_t bytes() const { return m_bytes; }
    std::int64_t total() const { return m_total; }
    double bytesPerSecond() const { return m_bytesPerSecond; }
    const QString &detail() const { return m_detail; }

    // Called on the interface thread after every job that ends, whatever its outcome.
    void setCompleted(std::function<void()> completed) { m_completed = std::move(completed); }

    // Appends a waiting job and starts it at once when the queue is idle.
    QUuid enqueue(const QString &title, QueueItem::Work work);
    // Stops a job: a waiting one becomes "Cancelled" and never runs; a running one
    // keeps "Running" until its work notices the stop. Unknown ids are ignored.
    void cancel(const QUuid &id);
    // Drops every finished job; waiting and running ones keep their order.
    void clearFinished();
    // True while any job waits or runs (the quit guard asks this).
    bool hasWork() const;

Q_SIGNALS:
    void itemsChanged();
    void runningChanged();
    void bytesChanged();
    void totalChanged();
    void bytesPerSecondChanged();
    void detailChanged();

private:
    struct Outcome {
        QUuid id;
        QString state;
    };

    void startNext();
    void poll();
    void finish(const Outcome &outcome);
    void publishProgress(const OperationControl::Progress &progress, double bytesPerSecond);
    void setRunning(bool running);
    QueueItem *find(const QUuid &id);

    static Outcome runWork(const QueueItem &item);

    std::vector<QueueItem> m_items;
    bool m_running = false;
    std::int64_t m_bytes = 0;
    std::int64_t m_total = 0;
    double m_bytesPerSecond = 0;
    QString m_detail;
    std::function<void()> m_completed;

    int m_pollIntervalMs;
    QTimer *m_timer = nullptr;
    QElapsedTimer m_started;
    std::shared_ptr<OperationControl> m_current;
    std::shared_ptr<ReceiverGuard> m_receiver;
};

} // namespace quillorn
