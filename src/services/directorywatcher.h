#pragma once

#include <QObject>
#include <QTimer>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>

#include "platform/core/inotifywatch.h"

namespace quillorn {

class ReceiverGuard;

// Tells a pane that the folder it shows has changed. Watches the folder's own
// entries (not sub-folders), coalesces bursts with a debounce, and calls the
// owner's callback on the interface thread. Opening the watch can block on slow
// volumes, so it happens on a pool thread; only the newest watch() request is
// ever installed (generation). A folder that cannot be opened fails silently: it
// just does not refresh by itself. A folder that the system's limits leave
// unwatched (inotify watches or instances used up) is re-read every
// fallbackInterval instead, and isPolling() says so. Destroying the watcher
// cancels a pending callback.
class DirectoryWatcher : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds defaultDebounce{300};
    static constexpr std::chrono::milliseconds fallbackInterval{5000};

    explicit DirectoryWatcher(QObject *parent = nullptr);
    explicit DirectoryWatcher(std::chrono::milliseconds debounce, QObject *parent = nullptr);
    ~DirectoryWatcher() override;

    // Interface thread only. Replaces the previous watch; calls changed once as
    // soon as the new watch is in place, then after each burst of changes.
    void watch(const std::filesystem::path &folder, std::function<void()> changed);

    // True while a watch is installed (for tests and diagnostics).
    bool isWatching() const { return m_source != nullptr; }
    bool isPending() const { return m_pending.isActive(); }
    // True while the folder is re-read on a timer because no watch could be set.
    bool isPolling() const { return m_polling; }

Q_SIGNALS:
    // isPolling() changed; only once the newest request has settled, so moving
    // between two unwatchable folders does not flicker.
    void pollingChanged();

private:
    void install(long long generation, InotifyWatch::Descriptor descriptor, std::function<void()> changed);
    void poll(long long generation, std::function<void()> changed);
    void settle(long long generation, bool polling);
    void eventArrived();

    std::unique_ptr<InotifyWatch> m_source;
    QTimer m_pending;
    QTimer m_fallback;
    bool m_polling = false;
    std::function<void()> m_changed;
    long long m_generation = 0;
    std::shared_ptr<ReceiverGuard> m_guard;
};

} // namespace quillorn
