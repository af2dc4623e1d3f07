#include "services/directorywatcher.h"

#include "platform/core/filesystempool.h"
#include "platform/core/inotifywatch.h"
#include "platform/core/receiverguard.h"

#include <QThreadPool>
#include <cerrno>
#include <system_error>

namespace quillorn {

DirectoryWatcher::DirectoryWatcher(QObject *parent) : DirectoryWatcher(defaultDebounce, parent)
{
}

DirectoryWatcher::DirectoryWatcher(std::chrono::milliseconds debounce, QObject *parent)
    : QObject(parent), m_guard(ReceiverGuard::create(this))
{
    m_pending.setSingleShot(true);
    // A coarse timer may fire 5 % early; the delay is a promise to the owner.
    m_pending.setTimerType(Qt::PreciseTimer);
    m_pending.setInterval(debounce);
    connect(&m_pending, &QTimer::timeout, this, [this] {
        if (m_changed)
            m_changed();
    });
    m_fallback.setInterval(fallbackInterval);
    connect(&m_fallback, &QTimer::timeout, this, [this] {
        if (m_changed)
            m_changed();
    });
}

DirectoryWatcher::~DirectoryWatcher()
{
    m_guard->release();
    m_pending.stop();
}

void DirectoryWatcher::watch(const std::filesystem::path &folder, std::function<void()> changed)
{
    const long long generation = ++m_generation;
    m_source.reset();
    m_pending.stop();
    m_fallback.stop();
    m_changed = nullptr;

    fileSystemPool().start(
        [self = this, guard = m_guard, folder, generation, changed = std::move(changed)]() mutable {
            InotifyWatch::Descriptor descriptor;
            try {
                descriptor = InotifyWatch::open(folder);
            } catch (const std::system_error &error) {
                // Out of watches or instances says nothing about the folder, which
                // is then read again and again; a folder that cannot be opened
                // simply does not refresh by itself.
                const int code = error.code().value();
                const bool limited = code == ENOSPC || code == EMFILE || code == ENFILE || code == ENOMEM;
                guard->post([self, generation, limited, changed = std::move(changed)]() mutable {
                    if (limited)
                        self->poll(generation, std::move(changed));
                    else
                        self->settle(generation, false);
                });
                return;
            }
            // Held by the posted call: when the watcher is gone, dropping the call closes it.
            auto shared = std::make_shared<InotifyWatch::Descriptor>(std::move(descriptor));
            guard->post([self, shared, generation, changed = std::move(changed)]() mutable {
                self->install(generation, std::move(*shared), std::move(changed));
            });
        });
}

void DirectoryWatcher::install(long long generation, InotifyWatch::Descriptor descriptor,
                               std::function<void()> changed)
{
    if (generation != m_generation)
        return; // superseded: the descriptor closes here
    settle(generation, false);
    m_source = std::make_unique<InotifyWatch>(std::move(descriptor));
    connect(m_source.get(), &InotifyWatch::changed, this, &DirectoryWatcher::eventArrived);
    m_changed = std::move(changed);
    // Covers whatever changed between the owner's listing and this moment.
    m_changed();
}

void DirectoryWatcher::poll(long long generation, std::function<void()> changed)
{
    if (generation != m_generation)
        return;
    settle(generation, true);
    m_changed = std::move(changed);
    m_fallback.start();
    // Like a watch that starts: covers whatever changed since the owner's listing.
    m_changed();
}

void DirectoryWatcher::settle(long long generation, bool polling)
{
    if (generation != m_generation || polling == m_polling)
        return;
    m_polling = polling;
    Q_EMIT pollingChanged();
}

void DirectoryWatcher::eventArrived()
{
    // Restarting postpones the callback until the burst pauses.
    m_pending.start();
}

} // namespace quillorn
