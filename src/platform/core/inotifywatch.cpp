#include "platform/core/inotifywatch.h"

#include <QSocketNotifier>
#include <cerrno>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>

namespace quillorn {

namespace {

// IN_MODIFY and IN_CLOSE_WRITE are left out on purpose: they report writes into
// the folder's files, which do not change the folder's listing.
constexpr uint32_t folderEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB |
                                  IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

InotifyWatch::Descriptor::~Descriptor()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

InotifyWatch::Descriptor &InotifyWatch::Descriptor::operator=(Descriptor &&other) noexcept
{
    if (this != &other) {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
}

InotifyWatch::Descriptor InotifyWatch::open(const std::filesystem::path &folder)
{
    Descriptor descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!descriptor)
        throw std::system_error(errno, std::generic_category(), "inotify_init1");
    if (::inotify_add_watch(descriptor.get(), folder.c_str(), folderEvents) < 0)
        throw std::system_error(errno, std::generic_category(), folder.native());
    return descriptor;
}

InotifyWatch::InotifyWatch(Descriptor descriptor, QObject *parent)
    : QObject(parent), m_descriptor(std::move(descriptor)),
      m_notifier(std::make_unique<QSocketNotifier>(m_descriptor.get(), QSocketNotifier::Read))
{
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &InotifyWatch::readEvents);
}

InotifyWatch::~InotifyWatch()
{
    // The notifier must let go of the descriptor before it is closed.
    m_notifier.reset();
}

void InotifyWatch::readEvents()
{
    alignas(inotify_event) char buffer[16 * 1024];
    bool any = false;
    for (;;) {
        const ssize_t count = ::read(m_descriptor.get(), buffer, sizeof buffer);
        if (count > 0) {
            any = true;
            continue;
        }
        if (count < 0 && errno == EINTR)
            continue;
        break; // EAGAIN: drained
    }
    if (any)
        Q_EMIT changed();
}

} // namespace quillorn
