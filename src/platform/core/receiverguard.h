#pragma once

#include <QMetaObject>
#include <QObject>
#include <memory>
#include <mutex>
#include <utility>

namespace quillorn {

// Lets background work hand a result to an object on the interface thread that
// may be destroyed meanwhile. The owner creates the guard, gives copies of the
// shared pointer to its workers and calls release() first thing in its
// destructor; a post after that is dropped, and one made before is removed
// with the object's pending events when QObject's destructor runs.
class ReceiverGuard {
public:
    static std::shared_ptr<ReceiverGuard> create(QObject *receiver)
    {
        return std::shared_ptr<ReceiverGuard>(new ReceiverGuard(receiver));
    }

    // Any thread: queues call on the receiver's thread. False when released.
    template <typename Call> bool post(Call &&call) const
    {
        std::lock_guard lock(m_mutex);
        if (!m_receiver)
            return false;
        QMetaObject::invokeMethod(m_receiver, std::forward<Call>(call), Qt::QueuedConnection);
        return true;
    }

    void release()
    {
        std::lock_guard lock(m_mutex);
        m_receiver = nullptr;
    }

private:
    explicit ReceiverGuard(QObject *receiver) : m_receiver(receiver) {}

    mutable std::mutex m_mutex;
    QObject *m_receiver;
};

} // namespace quillorn
