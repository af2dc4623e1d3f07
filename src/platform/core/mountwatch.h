#pragma once

#include <QObject>
#include <memory>

class QSocketNotifier;

namespace quillorn {

// Tells when something is mounted or unmounted in the process's mount
// namespace: the kernel flags /proc/self/mountinfo with POLLPRI after each
// change of the table, which a socket notifier of the exception kind hears.
// Without the file (no /proc) it stays silent.
class MountWatch : public QObject {
    Q_OBJECT
public:
    explicit MountWatch(QObject *parent = nullptr);
    ~MountWatch() override;

Q_SIGNALS:
    void changed();

private:
    int m_fd = -1;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace quillorn
