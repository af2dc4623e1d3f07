#pragma once

#include <QDBusConnection>
#include <QMap>
#include <QObject>
#include <QString>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

class QDBusMessage;
class QDBusServiceWatcher;

namespace quillorn {

// A file system on a drive the user may plug in and take away.
struct RemovableFilesystem {
    QString object; // UDisks2's object of the block device
    QString drive;  // the object of the drive it is on; empty when none
    // The name udev gives it, else its label, else the drive's vendor and
    // model, else the device file.
    QString label;
    std::int64_t size = 0;
    std::vector<std::filesystem::path> mountPoints; // empty while not mounted
    bool canEject = false;                          // the drive ejects or powers off
    bool operator==(const RemovableFilesystem &) const = default;
};

// The removable drives that UDisks2 reports, and its mount, unmount and eject.
// The list is kept up to date from the service's signals, so reading it never
// waits for the bus; without the service (none installed, no system bus) it is
// simply empty, and it fills once the service appears. Calls answer on the
// interface thread with the service's own error message (empty on success),
// and not at all once their context object is gone.
class RemovableDrives : public QObject {
    Q_OBJECT
public:
    static constexpr const char *serviceName = "org.freedesktop.UDisks2";
    using Finished = std::function<void(const QString &error)>;
    using Mounted = std::function<void(const std::filesystem::path &mountPoint, const QString &error)>;

    // UDisks2 lives on the system bus; tests hand over a private one.
    explicit RemovableDrives(const QDBusConnection &bus, QObject *parent = nullptr);
    ~RemovableDrives() override;

    // Sorted by label, then object.
    const std::vector<RemovableFilesystem> &filesystems() const { return m_filesystems; }

    void mount(const QString &object, QObject *context, Mounted done);
    void unmount(const QString &object, QObject *context, Finished done);
    // Unmounts every file system of the object's drive, then ejects the drive,
    // or powers it off when it has nothing to eject (a USB stick).
    void eject(const QString &object, QObject *context, Finished done);

Q_SIGNALS:
    // filesystems() is different.
    void changed();

private Q_SLOTS:
    void objectsChanged();

private:
    void refresh();
    void apply(const QDBusMessage &reply);
    void call(const QString &object, const char *interface, const char *method, QObject *context,
              std::function<void(const QDBusMessage &)> answer);
    void ejectAfterUnmounting(const QString &drive, QStringList mounted, QObject *context, Finished done);

    QDBusConnection m_bus;
    QDBusServiceWatcher *m_watcher = nullptr;
    std::vector<RemovableFilesystem> m_filesystems;
    QMap<QString, bool> m_ejectable; // drive object → Eject rather than PowerOff
    bool m_asking = false;           // a GetManagedObjects call is out
    bool m_askAgain = false;         // and something changed since it left
};

} // namespace quillorn
