#pragma once

#include "platform/core/receiverguard.h"

#include <QObject>
#include <exception>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace quillorn {

namespace detail {

// Where one piece of background work delivers: a child of the receiver, so it
// goes when the receiver goes, and whatever arrives after that is dropped.
class DeliveryPoint : public QObject {
public:
    explicit DeliveryPoint(QObject *receiver) : QObject(receiver), m_guard(ReceiverGuard::create(this)) {}
    ~DeliveryPoint() override { m_guard->release(); }
    const std::shared_ptr<ReceiverGuard> &guard() const { return m_guard; }

private:
    std::shared_ptr<ReceiverGuard> m_guard;
};

// Starts the job on a detached thread of its own: the work may block for long
// (a large tree, a hung network mount), so it takes no pooled thread and
// nothing waits for it; it ends through its OperationControl.
void startDetached(std::function<void()> job);

} // namespace detail

// Runs `work` off the interface thread and hands its result to `done`, or the
// exception it threw to `failed`, on the receiver's thread. Nothing is
// delivered once the receiver is destroyed, so a sheet that closed never sees
// the result of its work. Stopping the work is the caller's part (its control).
template <typename Work, typename Done, typename Failed>
void runInBackground(QObject *receiver, Work work, Done done, Failed failed)
{
    using Result = std::invoke_result_t<Work &>;
    auto *point = new detail::DeliveryPoint(receiver);
    detail::startDetached([guard = point->guard(), point, work = std::move(work), done = std::move(done),
                           failed = std::move(failed)]() mutable {
        try {
            auto result = std::make_shared<Result>(work());
            guard->post([point, result, done] {
                point->deleteLater();
                done(std::move(*result));
            });
        } catch (...) {
            guard->post([point, error = std::current_exception(), failed] {
                point->deleteLater();
                failed(error);
            });
        }
    });
}

} // namespace quillorn
