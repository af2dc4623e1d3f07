#include "platform/core/mountwatch.h"

#include <QSocketNotifier>
#include <fcntl.h>
#include <unistd.h>

namespace quillorn {

MountWatch::MountWatch(QObject *parent) : QObject(parent)
{
    m_fd = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    if (m_fd < 0)
        return;
    // The flag is cleared by the poll that reports it, so each change is heard once.
    m_notifier = std::make_unique<QSocketNotifier>(m_fd, QSocketNotifier::Exception);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &MountWatch::changed);
}

MountWatch::~MountWatch()
{
    m_notifier.reset(); // lets go of the descriptor before it is closed
    if (m_fd >= 0)
        ::close(m_fd);
}

} // namespace quillorn
