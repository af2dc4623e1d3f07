#include "platform/desktop/reveal.h"

#include "platform/desktop/defaultapplication.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace quillorn {

namespace {

void openContainingFolder(const std::filesystem::path &item, std::function<void(RevealRoute)> done)
{
    std::filesystem::path folder = item.parent_path();
    if (folder.empty())
        folder = "/";
    openWithDefaultApplication(folder, [done = std::move(done)](bool opened) {
        if (done)
            done(opened ? RevealRoute::containingFolder : RevealRoute::failed);
    });
}

} // namespace

void revealItem(const std::filesystem::path &item, std::function<void(RevealRoute)> done)
{
    auto finish = [item, done = std::move(done)](bool shownByFileManager) {
        if (!shownByFileManager)
            openContainingFolder(item, done);
        else if (done)
            done(RevealRoute::fileManager);
    };

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        finish(false);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QString::fromLatin1(encodedFileUrl(item))} << QString();
    // Without a file manager on the bus, activation fails quickly with
    // ServiceUnknown; a hung one is given a few seconds before the folder opens.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 5000));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [watcher, finish = std::move(finish)]() {
                         watcher->deleteLater();
                         finish(!watcher->isError());
                     });
}

} // namespace quillorn
