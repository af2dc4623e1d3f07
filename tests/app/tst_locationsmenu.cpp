// ctest-labels: root
#include "windowfixture.h"

#include "app/detail/paneheaderbar.h"
#include "platform/desktop/bytecount.h"
#include "platform/desktop/removabledrives.h"
#include "scopedmount.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QMenu>
#include <QProcess>
#include <QStandardPaths>

#include <optional>
#include <unistd.h>

using namespace quillorn;
using namespace quillorn::test;

namespace {

// A bus of the test's own, and on it, when asked, the stand-in UDisks2 of
// fake_udisks2.py serving drives whose folders are below `media`.
struct PrivateBus {
    ~PrivateBus()
    {
        for (QProcess *process : {&udisks, &daemon}) {
            process->kill();
            process->waitForFinished();
        }
        QDBusConnection::disconnectFromBus(name);
    }

    // The daemon's first line of output is its address.
    bool start()
    {
        daemon.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                     QStringLiteral("--print-address=1")});
        while (!daemon.canReadLine() && daemon.waitForReadyRead(30000)) {
        }
        address = QString::fromUtf8(daemon.readLine().trimmed());
        return !address.isEmpty() && QDBusConnection::connectToBus(address, name).isConnected();
    }

    QDBusConnection connection() const { return QDBusConnection(name); }

    bool serveDrives(const fs::path &media)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
        udisks.setProcessEnvironment(environment);
        udisks.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        udisks.start(QStringLiteral("/usr/bin/python3"), {qEnvironmentVariable("QUILLORN_SOURCE_DIR") +
                                                              QStringLiteral("/tests/app/fake_udisks2.py"),
                                                          QString::fromStdString(media.string())});
        while (!udisks.canReadLine() && udisks.waitForReadyRead(30000)) {
        }
        return udisks.readLine().trimmed() == "ready";
    }

    const QString name = QStringLiteral("quillorn-test-udisks");
    QProcess daemon, udisks;
    QString address;
};

bool canServeDrives()
{
    return !QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty() &&
           QProcess::execute(QStringLiteral("/usr/bin/python3"),
                             {QStringLiteral("-c"), QStringLiteral("import dbus, gi.repository.GLib")}) == 0;
}

} // namespace

// The locations menu of the real window's left pane: the desktop's shares,
// removable drives through a stand-in UDisks2 on a private bus, and mounts that
// come and go while the menu is open.
class TestLocationsMenu : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_f.setUp(); }
    void cleanup()
    {
        m_f.tearDown();
        m_drives.reset();
        m_bus.reset();
    }

    void withoutUDisks2TheMenuStillOffersHomeRootAndTheVolumes()
    {
        // No system bus at all (the test's environment points it nowhere).
        QStringList items = texts();
        QCOMPARE(items.mid(0, 4), (QStringList{"Home", "Root", "Trash", "/"}));
        QVERIFY(!items.contains(QString())); // no separator: nothing to unmount
        menu()->hide();
        if (!canServeDrives())
            QSKIP("needs dbus-daemon and python3-dbus with python3-gi (Debian packages)");
        // A bus without the service: the same menu; once the service starts
        // the open menu shows its drives.
        useDrivesOnPrivateBus();
        QCOMPARE(texts(), items);
        QVERIFY(m_bus->serveDrives(*m_f.tree / "media"));
        QTRY_VERIFY(texts().contains(notMounted("STICK", 16'000'000'000)));
    }

    void removableDrivesMountUnmountAndEjectAndABusyOneIsRefusedWithTheSystemsWords()
    {
        if (!canServeDrives())
            QSKIP("needs dbus-daemon and python3-dbus with python3-gi (Debian packages)");
        const fs::path media = *m_f.tree / "media";
        useDrivesOnPrivateBus();
        QVERIFY(m_bus->serveDrives(media));
        QTRY_COMPARE(m_drives->filesystems().size(), std::size_t(3));
        const QStringList items = texts();
        for (const QString &item : {QString("BACKUP"), QString("CARD"), notMounted("STICK", 16'000'000'000),
                                    QString("Unmount ‘BACKUP’"), QString("Eject ‘BACKUP’"),
                                    QString("Unmount ‘CARD’"), QString("Eject ‘CARD’")})
            QVERIFY2(items.contains(item), qPrintable(item + " in " + items.join(", ")));
        // The machine's own disk and what udev says to ignore stay out.
        QVERIFY(items.filter("DATA").isEmpty() && items.filter("SWAP").isEmpty());

        choose(notMounted("STICK", 16'000'000'000));
        QTRY_COMPARE(m_f.left().directory(), media / "STICK");
        QTRY_VERIFY(texts().contains("Unmount ‘STICK’"));

        choose("Unmount ‘CARD’");
        QTRY_COMPARE(status(), "Could not unmount ‘CARD’. Error unmounting /dev/sdc1: target is busy");
        QVERIFY(texts().contains("CARD"));
        choose("Eject ‘CARD’"); // unmounts first, and that is refused the same way
        QTRY_COMPARE(status(), "Could not eject ‘CARD’. Error unmounting /dev/sdc1: target is busy");

        choose("Eject ‘BACKUP’");
        QTRY_COMPARE(status(), "Ejected ‘BACKUP’.");
        QTRY_VERIFY(texts().filter("BACKUP").isEmpty());
        choose("Unmount ‘STICK’");
        QTRY_COMPARE(status(), "Unmounted ‘STICK’.");
        QTRY_VERIFY(texts().contains(notMounted("STICK", 16'000'000'000)));
    }

    void desktopSharesAreListedByTheirShareNames()
    {
        if (!canMount())
            QSKIP("needs root and bindfs (Debian package bindfs)");
        // bindfs shows the folders under the types GNOME's and KDE's daemons mount with.
        m_f.tree->folder("gvfs-served/smb-share:server=nas,share=public%20files");
        m_f.tree->folder("kio-served/sftp/bob@host.example:2222");
        ScopedMount gvfs = fuseTyped("gvfsd-fuse", "gvfs-served", "gvfs");
        ScopedMount kio = fuseTyped("kio-fuse", "kio-served", "kio-fuse-Xy12");
        const QStringList items = texts();
        QVERIFY2(items.contains("public files on nas") && items.contains("host.example (sftp)"),
                 qPrintable(items.join(", ")));
        QVERIFY(!items.contains("gvfs") && !items.contains("kio-fuse-Xy12")); // the daemons' own mounts
        choose("public files on nas");
        QTRY_COMPARE(m_f.left().directory(), gvfs.path() / "smb-share:server=nas,share=public%20files");
    }

    void realMountComesAndGoesWhileTheMenuIsOpenAndThePaneOnItSurvives()
    {
        if (!canMount())
            QSKIP("needs root and bindfs (Debian package bindfs)");
        m_f.tree->folder("backing/sub");
        const fs::path where = m_f.tree->folder("Stick Two");
        QVERIFY(!texts().contains("Stick Two"));
        std::optional<ScopedMount> stick = ScopedMount::byCommand(
            "bindfs " + shellQuote(*m_f.tree / "backing") + " " + shellQuote(where), where);
        QTRY_VERIFY(menu()->isVisible() && currentTexts().contains("Stick Two")); // built again while open
        choose("Stick Two");
        QTRY_COMPARE(m_f.left().directory(), where);
        m_f.left().navigate(where / "sub");
        WindowFixture::waitListed(m_f.left());
        texts();
        stick.reset();
        QTRY_VERIFY(!currentTexts().contains("Stick Two"));
        // The pane's folder went with the volume: it says so and goes on working.
        QTRY_VERIFY(m_f.left().error().has_value());
        choose("Home");
        QTRY_VERIFY(!m_f.left().error().has_value());
    }

private:
    static bool canMount() { return ::access("/usr/bin/bindfs", X_OK) == 0 && runningAsRoot(); }

    ScopedMount fuseTyped(const std::string &daemon, const fs::path &served, const fs::path &where) const
    {
        return ScopedMount::byCommand("bindfs -o subtype=" + daemon + " " + shellQuote(*m_f.tree / served) +
                                          " " + shellQuote(m_f.tree->folder(where)),
                                      *m_f.tree / where);
    }

    QMenu *menu() const { return m_f.view->leftPane()->headerBar()->locationsMenu(); }
    QString status() const { return m_f.view->model().status(); }

    static QString notMounted(const QString &label, std::int64_t size)
    {
        return label + " (" + formattedByteCount(size) + ", not mounted)";
    }

    QStringList currentTexts() const
    {
        QStringList items;
        for (const QAction *action : menu()->actions())
            items << action->text();
        return items;
    }

    // What the menu shows when it opens.
    QStringList texts() const
    {
        if (!menu()->isVisible())
            m_f.view->leftPane()->headerBar()->popUpLocations();
        return currentTexts();
    }

    // As a user does: opens the menu, moves to the item and presses Return.
    void choose(const QString &text)
    {
        texts();
        QTRY_VERIFY(menu()->isVisible());
        QAction *chosen = nullptr;
        for (QAction *action : menu()->actions())
            if (action->text() == text)
                chosen = action;
        QVERIFY2(chosen, qPrintable(text));
        menu()->setActiveAction(chosen);
        QTest::keyClick(menu(), Qt::Key_Return);
        QTRY_VERIFY(!menu()->isVisible());
    }

    void useDrivesOnPrivateBus()
    {
        m_bus = std::make_unique<PrivateBus>();
        QVERIFY2(m_bus->start(), "dbus-daemon did not start");
        m_drives = std::make_unique<RemovableDrives>(m_bus->connection());
        m_f.view->leftPane()->headerBar()->setDrives(m_drives.get());
    }

    WindowFixture m_f;
    std::unique_ptr<PrivateBus> m_bus;
    std::unique_ptr<RemovableDrives> m_drives;
};

QTEST_MAIN(TestLocationsMenu)
#include "tst_locationsmenu.moc"
