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
// ever installed (generation). Failures are silent: an unwatchable folder just
// does not refresh by itself. Destroying the watcher cancels a pending callback.
class DirectoryWatcher : public QObject {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds defaultDebounce{300};

    explicit DirectoryWatcher(QObject *parent = nullptr);
    explicit DirectoryWatcher(std::chrono::milliseconds debounce, QObject *parent = nullptr);
    ~DirectoryWatcher() override;

    // Interface thread only. Replaces the previous watch; calls changed once as
    // soon as the new watch is in place, then after each burst of changes.
    void watch(const std::filesystem::path &folder, std::function<void()> changed);

    // True while a watch is installed (for tests and diagnostics).
    bool isWatching() const { return m_source != nullptr; }
    bool isPending() const { return m_pending.isActive(); }

private:
    void install(long long generation, InotifyWatch::Descriptor descriptor, std::function<void()> changed);
    void eventArrived();

    std::unique_ptr<InotifyWatch> m_source;
    QTimer m_pending;
    std::function<void()> m_changed;
    long long m_generation = 0;
    std::shared_ptr<ReceiverGuard> m_guard;
};

} // namespace quillorn
