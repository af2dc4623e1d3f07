#include "operations/operationcontrol.h"

#include "operations/commandererror.h"

#include <utility>

namespace quillorn {

void OperationControl::cancel()
{
    std::lock_guard guard(m_lock);
    m_stopped = true;
}

void OperationControl::check() const
{
    if (isCancelled())
        throw CancellationError();
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
    m_expected = bytes;
}

void OperationControl::detail(std::string text)
{
    std::lock_guard guard(m_lock);
    m_currentDetail = std::move(text);
}

OperationControl::Progress OperationControl::progress() const
{
    std::lock_guard guard(m_lock);
    return {m_completed, m_expected, m_currentDetail};
}

} // namespace quillorn
