#include "operations/operationcontrol.h"

#include "operations/commandererror.h"

#include <utility>

namespace quillorn {

void OperationControl::cancel()
{
    {
        std::lock_guard guard(m_lock);
        m_stopped = true;
    }
    m_unpaused.notify_all();
}

void OperationControl::check() const
{
    std::unique_lock guard(m_lock);
    m_unpaused.wait(guard, [this] { return !m_paused || m_stopped; });
    if (m_stopped)
        throw CancellationError();
}

void OperationControl::pause()
{
    std::lock_guard guard(m_lock);
    m_paused = true;
}

void OperationControl::resume()
{
    {
        std::lock_guard guard(m_lock);
        m_paused = false;
    }
    m_unpaused.notify_all();
}

void OperationControl::onPublished(PublishedListener listener)
{
    std::lock_guard guard(m_lock);
    m_published = std::move(listener);
}

void OperationControl::published(const std::filesystem::path &source,
                                 const std::filesystem::path &target) const
{
    PublishedListener listener;
    {
        std::lock_guard guard(m_lock);
        listener = m_published;
    }
    if (listener)
        listener(source, target);
}

void OperationControl::onPublishing(PublishingListener listener)
{
    std::lock_guard guard(m_lock);
    m_publishing = std::move(listener);
}

void OperationControl::publishing(const PublishIntent &intent) const
{
    publishing(std::vector<PublishIntent>{intent});
}

void OperationControl::publishing(const std::vector<PublishIntent> &intents) const
{
    PublishingListener listener;
    {
        std::lock_guard guard(m_lock);
        listener = m_publishing;
    }
    if (listener && !intents.empty())
        listener(intents);
}

bool OperationControl::isPaused() const
{
    std::lock_guard guard(m_lock);
    return m_paused;
}

bool OperationControl::isCancelled() const
{
    std::lock_guard guard(m_lock);
    return m_stopped;
}

void OperationControl::add(std::int64_t bytes)
{
    std::lock_guard guard(m_lock);
    m_completed += bytes;
}

void OperationControl::total(std::int64_t bytes)
{
    std::lock_guard guard(m_lock);
    if (!m_totalsHeld)
        m_expected = bytes;
}

void OperationControl::detail(std::string text)
{
    std::lock_guard guard(m_lock);
    m_currentDetail = std::move(text);
}

void OperationControl::addItems(std::int64_t count)
{
    std::lock_guard guard(m_lock);
    m_itemsDone += count;
}

void OperationControl::totalItems(std::int64_t count)
{
    std::lock_guard guard(m_lock);
    if (!m_totalsHeld)
        m_itemsExpected = count;
}

void OperationControl::holdTotals(std::int64_t bytes, std::int64_t items)
{
    std::lock_guard guard(m_lock);
    m_expected = bytes;
    m_itemsExpected = items;
    m_totalsHeld = true;
}

OperationControl::Progress OperationControl::progress() const
{
    std::lock_guard guard(m_lock);
    return {m_completed, m_expected, m_currentDetail, m_itemsDone, m_itemsExpected};
}

} // namespace quillorn
