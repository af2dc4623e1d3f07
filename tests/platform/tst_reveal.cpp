#include "platform/desktop/reveal.h"
#include "testtree.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDesktopServices>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

#include <optional>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

// Stands in for a desktop file manager on a private session bus.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;
public Q_SLOTS:
    void ShowItems(const QStringList &uris, const QString &startupId)
    {
        Q_UNUSED(startupId);
        shown << uris;
    }
};

// Receives what QDesktopServices::openUrl would hand to the desktop.
class OpenedUrls : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public Q_SLOTS:
    void open(const QUrl &url) { urls << url; }
};

} // namespace

class RevealTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (QStandardPaths::findExecutable("dbus-daemon").isEmpty())
            QSKIP("dbus-daemon is not installed (Debian package dbus-daemon)");
        m_bus.start("dbus-daemon", {"--session", "--nofork", "--nopidfile", "--print-address=1"});
        QVERIFY(m_bus.waitForStarted());
        QTRY_VERIFY(m_bus.canReadLine());
        const QByteArray address = m_bus.readLine().trimmed();
        // Before the first use of the session bus, which reads the variable once.
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        QVERIFY(QDBusConnection::sessionBus().isConnected());
        m_fileManagerBus.emplace(QDBusConnection::connectToBus(QString::fromLatin1(address), "fileManager"));
        QVERIFY(m_fileManagerBus->isConnected());
        QDesktopServices::setUrlHandler("file", &m_opened, "open");
    }

    void cleanupTestCase()
    {
        QDesktopServices::unsetUrlHandler("file");
        if (m_fileManagerBus)
            QDBusConnection::disconnectFromBus("fileManager");
        m_bus.kill();
        m_bus.waitForFinished();
    }

    void init() { m_opened.urls.clear(); }

    void theFileManagerShowsTheItemSelected()
    {
        FakeFileManager manager;
        QVERIFY(m_fileManagerBus->registerObject("/org/freedesktop/FileManager1", &manager,
                                                 QDBusConnection::ExportAllSlots));
        QVERIFY(m_fileManagerBus->registerService("org.freedesktop.FileManager1"));
        const fs::path log = m_tree.file("Logs/Quillorn.log", "x");

        std::optional<RevealRoute> route;
        revealItem(log, [&](RevealRoute taken) { route = taken; });
        QTRY_VERIFY(route);
        QCOMPARE(*route, RevealRoute::fileManager);
        QCOMPARE(manager.shown,
                 QStringList{QUrl::fromLocalFile(QString::fromStdString(log.string())).toString()});
        QVERIFY(m_opened.urls.isEmpty());

        m_fileManagerBus->unregisterService("org.freedesktop.FileManager1");
        m_fileManagerBus->unregisterObject("/org/freedesktop/FileManager1");
    }

    void aNameThatIsNotUtf8KeepsItsBytes()
    {
        FakeFileManager manager;
        QVERIFY(m_fileManagerBus->registerObject("/org/freedesktop/FileManager1", &manager,
                                                 QDBusConnection::ExportAllSlots));
        QVERIFY(m_fileManagerBus->registerService("org.freedesktop.FileManager1"));
        const fs::path item = m_tree.file("caf\xe9.txt", "x");

        std::optional<RevealRoute> route;
        revealItem(item, [&](RevealRoute taken) { route = taken; });
        QTRY_VERIFY(route);
        QCOMPARE(manager.shown.size(), 1);
        QVERIFY2(manager.shown.first().endsWith("/caf%E9.txt"), qPrintable(manager.shown.first()));

        m_fileManagerBus->unregisterService("org.freedesktop.FileManager1");
        m_fileManagerBus->unregisterObject("/org/freedesktop/FileManager1");
    }

    void withoutAFileManagerTheFolderOpens()
    {
        const fs::path log = m_tree.file("Other/Quillorn.log", "x");
        std::optional<RevealRoute> route;
        revealItem(log, [&](RevealRoute taken) { route = taken; });
        QTRY_VERIFY(route);
        QCOMPARE(*route, RevealRoute::containingFolder);
        QCOMPARE(m_opened.urls.size(), 1);
        QCOMPARE(m_opened.urls.first().toLocalFile(), QString::fromStdString((m_tree / "Other").string()));
    }

private:
    test::TestTree m_tree;
    QProcess m_bus;
    std::optional<QDBusConnection> m_fileManagerBus;
    OpenedUrls m_opened;
};

QTEST_MAIN(RevealTest)
#include "tst_reveal.moc"
