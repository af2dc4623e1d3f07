#pragma once

#include <QObject>
#include <filesystem>
#include <memory>
#include <utility>

class QSocketNotifier;

namespace quillorn {

// An inotify descriptor watching one folder's own entries: items created,
// deleted, moved in or out, attributes changed, and the folder itself deleted or
// moved. Writes to the contents of its files do not count. Paths are bytes, so
// names that are not UTF-8 work (QFileSystemWatcher cannot watch those).
//
// open() blocks on slow volumes and may run on any thread; the watch is then
// built on the thread that should receive changed().
class InotifyWatch : public QObject {
    Q_OBJECT
public:
    // An open inotify descriptor with the folder's watch added; closes itself.
    class Descriptor {
    public:
        Descriptor() = default;
        explicit Descriptor(int fd) : m_fd(fd) {}
        ~Descriptor();
        Descriptor(Descriptor &&other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
        Descriptor &operator=(Descriptor &&other) noexcept;
        int get() const { return m_fd; }
        int release() { return std::exchange(m_fd, -1); }
        explicit operator bool() const { return m_fd >= 0; }

    private:
        int m_fd = -1;
    };

    // Throws std::system_error (generic category) when the folder cannot be watched.
    static Descriptor open(const std::filesystem::path &folder);

    explicit InotifyWatch(Descriptor descriptor, QObject *parent = nullptr);
    ~InotifyWatch() override;

Q_SIGNALS:
    // Once per batch of events read from the descriptor.
    void changed();

private:
    void readEvents();

    Descriptor m_descriptor;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace quillorn
