#include "platform/desktop/removabledrives.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QPointer>

#include <algorithm>
#include <tuple>

namespace quillorn {

namespace {

const QString objectManagerPath = QStringLiteral("/org/freedesktop/UDisks2");
const QString blockInterface = QStringLiteral("org.freedesktop.UDisks2.Block");
const QString filesystemInterface = QStringLiteral("org.freedesktop.UDisks2.Filesystem");
const QString driveInterface = QStringLiteral("org.freedesktop.UDisks2.Drive");

using Interfaces = QMap<QString, QVariantMap>;
using ManagedObjects = QMap<QDBusObjectPath, Interfaces>;

// Mount, unmount and eject wait for the disk: a slow stick flushing its cache,
// a check of a dirty file system. Listing answers at once or not at all.
constexpr int slowCallMs = 5 * 60 * 1000;
constexpr int listingCallMs = 10 * 1000;

// UDisks2 gives paths as NUL-terminated byte strings.
std::filesystem::path bytePath(QByteArray bytes)
{
    while (bytes.endsWith('\0'))
        bytes.chop(1);
    return bytes.toStdString();
}

std::vector<std::filesystem::path> mountPoints(const QVariant &value)
{
    std::vector<std::filesystem::path> points;
    for (const QByteArray &point : qdbus_cast<QList<QByteArray>>(value))
        if (!point.isEmpty() && point.front() == '/')
            points.push_back(bytePath(point));
    return points;
}

QString labelOf(const QVariantMap &block, const QVariantMap &drive)
{
    for (const char *key : {"HintName", "IdLabel"}) {
        const QString name = block.value(QLatin1String(key)).toString().trimmed();
        if (!name.isEmpty())
            return name;
    }
    const QString model = (drive.value(QStringLiteral("Vendor")).toString() + QLatin1Char(' ') +
                           drive.value(QStringLiteral("Model")).toString())
                              .simplified();
    if (!model.isEmpty())
        return model;
    return QString::fromStdString(
        bytePath(block.value(QStringLiteral("PreferredDevice")).toByteArray()).string());
}

QString errorOf(const QDBusMessage &reply)
{
    if (reply.type() != QDBusMessage::ErrorMessage)
        return {};
    return reply.errorMessage().isEmpty() ? reply.errorName() : reply.errorMessage();
}

} // namespace

RemovableDrives::RemovableDrives(const QDBusConnection &bus, QObject *parent) : QObject(parent), m_bus(bus)
{
    if (!m_bus.isConnected())
        return;
    const QString service = QString::fromLatin1(serviceName);
    const QString objectManager = QStringLiteral("org.freedesktop.DBus.ObjectManager");
    for (const char *signal : {"InterfacesAdded", "InterfacesRemoved"})
        m_bus.connect(service, objectManagerPath, objectManager, QLatin1String(signal), this,
                      SLOT(objectsChanged()));
    // A mount or an unmount changes a file system's MountPoints, nothing else.
    m_bus.connect(service, QString(), QStringLiteral("org.freedesktop.DBus.Properties"),
                  QStringLiteral("PropertiesChanged"), this, SLOT(objectsChanged()));
    m_watcher = new QDBusServiceWatcher(service, m_bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, &RemovableDrives::objectsChanged);
    refresh();
}

RemovableDrives::~RemovableDrives() = default;

void RemovableDrives::objectsChanged()
{
    refresh();
}

void RemovableDrives::refresh()
{
    if (m_asking) {
        m_askAgain = true;
        return;
    }
    m_asking = true;
    m_askAgain = false;
    const QDBusMessage message = QDBusMessage::createMethodCall(
        QString::fromLatin1(serviceName), objectManagerPath,
        QStringLiteral("org.freedesktop.DBus.ObjectManager"), QStringLiteral("GetManagedObjects"));
    auto *pending = new QDBusPendingCallWatcher(m_bus.asyncCall(message, listingCallMs), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this, pending] {
        pending->deleteLater();
        m_asking = false;
        if (m_askAgain)
            refresh(); // what arrived is already old
        else
            apply(pending->reply());
    });
}

void RemovableDrives::apply(const QDBusMessage &reply)
{
    ManagedObjects objects;
    if (reply.type() == QDBusMessage::ReplyMessage && reply.arguments().size() == 1)
        objects = qdbus_cast<ManagedObjects>(reply.arguments().constFirst());
    std::vector<RemovableFilesystem> found;
    QMap<QString, bool> ejectable;
    for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
        const Interfaces &interfaces = object.value();
        if (!interfaces.contains(blockInterface) || !interfaces.contains(filesystemInterface))
            continue;
        const QVariantMap block = interfaces.value(blockInterface);
        const QString drivePath = block.value(QStringLiteral("Drive")).value<QDBusObjectPath>().path();
        const QVariantMap drive = objects.value(QDBusObjectPath(drivePath)).value(driveInterface);
        const auto flag = [](const QVariantMap &map, const char *key) {
            return map.value(QLatin1String(key)).toBool();
        };
        // What udev marks as system (the machine's own disks) stays out unless
        // its media come and go; what it says to ignore (swap, recovery) always.
        const bool removable = flag(drive, "Removable") || flag(drive, "MediaRemovable");
        if (flag(block, "HintIgnore") || (flag(block, "HintSystem") && !removable))
            continue;
        RemovableFilesystem filesystem;
        filesystem.object = object.key().path();
        filesystem.drive = drive.isEmpty() ? QString() : drivePath;
        filesystem.label = labelOf(block, drive);
        filesystem.size = static_cast<std::int64_t>(block.value(QStringLiteral("Size")).toULongLong());
        filesystem.mountPoints =
            mountPoints(interfaces.value(filesystemInterface).value(QStringLiteral("MountPoints")));
        filesystem.canEject = flag(drive, "Ejectable") || flag(drive, "CanPowerOff");
        found.push_back(std::move(filesystem));
        if (!drive.isEmpty())
            ejectable.insert(drivePath, flag(drive, "Ejectable"));
    }
    std::sort(found.begin(), found.end(), [](const RemovableFilesystem &a, const RemovableFilesystem &b) {
        return std::tie(a.label, a.object) < std::tie(b.label, b.object);
    });
    m_ejectable = ejectable;
    if (found == m_filesystems)
        return;
    m_filesystems = std::move(found);
    Q_EMIT changed();
}

void RemovableDrives::call(const QString &object, const char *interface, const char *method, QObject *context,
                           std::function<void(const QDBusMessage &)> answer)
{
    QDBusMessage message = QDBusMessage::createMethodCall(QString::fromLatin1(serviceName), object,
                                                          QLatin1String(interface), QLatin1String(method));
    message << QVariantMap(); // the options: none, so the desktop's defaults apply
    auto *pending = new QDBusPendingCallWatcher(m_bus.asyncCall(message, slowCallMs), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this,
            [pending, context = QPointer<QObject>(context), answer = std::move(answer)] {
                pending->deleteLater();
                if (context)
                    answer(pending->reply());
            });
}

void RemovableDrives::mount(const QString &object, QObject *context, Mounted done)
{
    call(object, "org.freedesktop.UDisks2.Filesystem", "Mount", context, [done](const QDBusMessage &reply) {
        const QString error = errorOf(reply);
        const QString where =
            reply.arguments().isEmpty() ? QString() : reply.arguments().constFirst().toString();
        done(error.isEmpty() ? std::filesystem::path(where.toStdString()) : std::filesystem::path(), error);
    });
}

void RemovableDrives::unmount(const QString &object, QObject *context, Finished done)
{
    call(object, "org.freedesktop.UDisks2.Filesystem", "Unmount", context,
         [done](const QDBusMessage &reply) { done(errorOf(reply)); });
}

void RemovableDrives::eject(const QString &object, QObject *context, Finished done)
{
    const auto chosen = std::find_if(m_filesystems.begin(), m_filesystems.end(),
                                     [&](const RemovableFilesystem &f) { return f.object == object; });
    if (chosen == m_filesystems.end() || chosen->drive.isEmpty()) {
        done(tr("The drive is no longer there."));
        return;
    }
    QStringList mounted;
    for (const RemovableFilesystem &filesystem : m_filesystems)
        if (filesystem.drive == chosen->drive && !filesystem.mountPoints.empty())
            mounted << filesystem.object;
    ejectAfterUnmounting(chosen->drive, mounted, context, std::move(done));
}

void RemovableDrives::ejectAfterUnmounting(const QString &drive, QStringList mounted, QObject *context,
                                           Finished done)
{
    if (!mounted.isEmpty()) {
        const QString next = mounted.takeFirst();
        unmount(next, context, [this, drive, mounted, context, done](const QString &error) {
            if (!error.isEmpty())
                done(error);
            else
                ejectAfterUnmounting(drive, mounted, context, done);
        });
        return;
    }
    call(drive, "org.freedesktop.UDisks2.Drive", m_ejectable.value(drive, true) ? "Eject" : "PowerOff",
         context, [done](const QDBusMessage &reply) { done(errorOf(reply)); });
}

} // namespace quillorn
