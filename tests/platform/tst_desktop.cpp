#include "platform/desktop/detail/quicklookcontent.h"
#include "platform/desktop/fileclipboard.h"
#include "platform/desktop/fileurl.h"
#include "platform/desktop/quicklook.h"
#include "platform/desktop/reveal.h"
#include "testtree.h"

#include <QApplication>
#include <QClipboard>
#include <QDBusConnection>
#include <QDesktopServices>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace quillorn;
using detail::QuickLookContent;
using quillorn::test::TestTree;
namespace fs = std::filesystem;
using Paths = std::vector<fs::path>;

namespace {

// Stands in for a desktop file manager on a private session bus.
class FakeFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;
public Q_SLOTS:
    void ShowItems(const QStringList &uris, const QString &) { shown << uris; }
};

// Receives what QDesktopServices::openUrl would hand to the desktop.
class OpenedUrls : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public Q_SLOTS:
    void open(const QUrl &url) { urls << url; }
};

QList<QuickLook *> openQuickLooks()
{
    QList<QuickLook *> windows;
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (auto *look = qobject_cast<QuickLook *>(widget); look && look->isVisible())
            windows << look;
    return windows;
}

} // namespace

// Clipboard, quick look and reveal: the desktop side of the platform layer.
class PlatformDesktopTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void clipboardKeepsBytesAndWritesTheFormsOtherFileManagersRead()
    {
        const Paths items{"/tmp/z last", "/tmp/caf\xe9.txt", "/tmp/100% #1?.txt", "/tmp/line\nfeed", "/"};
        QCOMPARE(FileClipboard::items(*FileClipboard::mimeData(items)), items);
        QCOMPARE(pathFromFileUrl(fileUrl("/tmp/caf\xe9.txt").toEncoded()), fs::path("/tmp/caf\xe9.txt"));

        FileClipboard::write({"/home/u/a b.txt", "/home/u/Photos"});
        const QMimeData *data = QGuiApplication::clipboard()->mimeData();
        QCOMPARE(data->data("text/uri-list"), "file:///home/u/a%20b.txt\r\nfile:///home/u/Photos\r\n");
        QCOMPARE(data->data("x-special/gnome-copied-files"),
                 "copy\nfile:///home/u/a%20b.txt\nfile:///home/u/Photos");
        QCOMPARE(data->text(), "/home/u/a b.txt\n/home/u/Photos");
        QCOMPARE(FileClipboard::read(), (Paths{"/home/u/a b.txt", "/home/u/Photos"}));
    }

    void clipboardReadsWhatOtherProgramsLeave()
    {
        const struct {
            const char *type;
            QByteArray bytes;
            Paths expected;
        } cases[] = {
            {"x-special/gnome-copied-files",
             "copy\nfile:///srv/a%20b\nfile:///srv/c",
             {"/srv/a b", "/srv/c"}},
            {"x-special/gnome-copied-files", "cut\nfile:///srv/a\n", {"/srv/a"}}, // pasted as a copy
            {"text/uri-list", "# from a browser\nfile:///srv/a\n\nfile:///srv/b/\n", {"/srv/a", "/srv/b"}},
            {"text/uri-list", "file://localhost/srv/a\r\n", {"/srv/a"}},
            {"text/uri-list",
             "https://example.org/a\r\nfile://fileserver.example/srv/x\r\nfile:///srv/kept\r\n",
             {"/srv/kept"}},
            {"text/uri-list", "file:relative\r\nfile:///srv/a%00b\r\n", {}},
            {"application/x-kde4-urilist", "file:///srv/k\r\n", {"/srv/k"}},
            {"text/plain", "/srv/a", {}},
        };
        for (const auto &[type, bytes, expected] : cases) {
            auto *data = new QMimeData;
            data->setData(type, bytes);
            QGuiApplication::clipboard()->setMimeData(data);
            QVERIFY2(FileClipboard::read() == expected, bytes.constData());
        }
    }

    void quickLookShowsPicturesTextAndFactsWithoutOpeningPipes()
    {
        TestTree tree;
        QImage panorama(8192, 64, QImage::Format_RGB32);
        panorama.fill(Qt::darkCyan);
        QVERIFY(panorama.save(QString::fromStdString(tree / "panorama.png"), "PNG"));
        const auto picture = QuickLookContent::load(tree / "panorama.png");
        QCOMPARE(picture.kind, QuickLookContent::Kind::image);
        QCOMPARE(picture.image.size(), QSize(4096, 32)); // decoded smaller

        // The limit falls inside a two-byte character: it is left out, not mangled.
        const auto text = QuickLookContent::load(
            tree.file("big.log", std::string(QuickLookContent::textLimit - 1, 'x') + "é and more"));
        QCOMPARE(text.kind, QuickLookContent::Kind::text);
        QVERIFY(text.truncated);
        QCOMPARE(text.text, QString(QuickLookContent::textLimit - 1, 'x'));

        const auto binary = QuickLookContent::load(tree.file("data.bin", std::string("\0\1\2\3zz", 6)));
        QCOMPARE(binary.kind, QuickLookContent::Kind::facts);
        QVERIFY2(binary.text.startsWith("Name: data.bin\nSize: "), qPrintable(binary.text));
        QVERIFY(binary.text.contains("Where: " + QString::fromStdString(tree.root())));

        // Opening a pipe for reading would block until a writer comes.
        QCOMPARE(::mkfifo((tree / "pipe").c_str(), 0600), 0);
        QVERIFY(QuickLookContent::load(tree / "pipe").text.contains("Kind: Named pipe"));
    }

    void quickLookOfAMissingOrUnreadableItemIsTheSystemError()
    {
        TestTree tree;
        const fs::path secret = tree.file("secret.txt", "private");
        fs::permissions(secret, fs::perms::none);
        fs::permissions(tree.root(), static_cast<fs::perms>(0711));
        const auto codeOf = [](const fs::path &item) {
            // As root the mode would not stop us: the reading thread alone becomes nobody
            // (the raw system call changes only the calling thread's credentials).
            int code = 0;
            std::thread([&] {
                if (::geteuid() == 0 && ::syscall(SYS_setresuid, 65534, 65534, 65534) != 0)
                    code = -errno;
                else
                    try {
                        QuickLookContent::load(item);
                    } catch (const std::system_error &error) {
                        code = error.code().value();
                    }
            }).join();
            return code;
        };
        QCOMPARE(codeOf(tree.symlink("dangling", tree / "nowhere")), ENOENT);
        QCOMPARE(codeOf(secret), EACCES);
    }

    void previewOpensAWindowOrSaysWhyNot()
    {
        TestTree tree;
        QString reason;
        QuickLook::preview(tree.file("readme.md", "# Title\n"), [&](const QString &why) { reason = why; });
        QTRY_COMPARE_WITH_TIMEOUT(openQuickLooks().size(), 1, 5000);
        QuickLook *look = openQuickLooks().front();
        QCOMPARE(look->windowTitle(), "readme.md");
        QCOMPARE(look->findChild<QPlainTextEdit *>()->toPlainText(), "# Title\n");
        QTest::keyClick(look, Qt::Key_Escape);
        QTRY_VERIFY(openQuickLooks().isEmpty());
        QVERIFY(reason.isEmpty());

        QuickLook::preview(tree / "gone.txt", [&](const QString &why) { reason = why; });
        QTRY_COMPARE_WITH_TIMEOUT(reason, "No such file or directory", 5000);
        QVERIFY(openQuickLooks().isEmpty());
    }

    void revealSelectsTheItemInTheFileManagerElseOpensItsFolder()
    {
        if (QStandardPaths::findExecutable("dbus-daemon").isEmpty())
            QSKIP("dbus-daemon is not installed (Debian package dbus-daemon)");
        QProcess bus;
        bus.start("dbus-daemon", {"--session", "--nofork", "--nopidfile", "--print-address=1"});
        QVERIFY(bus.waitForStarted());
        QTRY_VERIFY(bus.canReadLine());
        const QByteArray address = bus.readLine().trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address); // read once, at the first use of the session bus
        QVERIFY(QDBusConnection::sessionBus().isConnected());
        QDBusConnection fileManagerBus =
            QDBusConnection::connectToBus(QString::fromLatin1(address), "manager");
        OpenedUrls opened;
        QDesktopServices::setUrlHandler("file", &opened, "open");
        TestTree tree;
        std::optional<RevealRoute> route;
        const auto reveal = [&](const fs::path &item) {
            route.reset();
            revealItem(item, [&](RevealRoute taken) { route = taken; });
            QTRY_VERIFY(route);
        };

        FakeFileManager manager;
        QVERIFY(fileManagerBus.registerObject("/org/freedesktop/FileManager1", &manager,
                                              QDBusConnection::ExportAllSlots));
        QVERIFY(fileManagerBus.registerService("org.freedesktop.FileManager1"));
        reveal(tree.file("Logs/caf\xe9.log"));
        QCOMPARE(*route, RevealRoute::fileManager);
        QCOMPARE(manager.shown,
                 QStringList{"file://" + QString::fromStdString(tree.root()) + "/Logs/caf%E9.log"});
        QVERIFY(opened.urls.isEmpty());

        fileManagerBus.unregisterService("org.freedesktop.FileManager1");
        reveal(tree.file("Other/Quillorn.log"));
        QCOMPARE(*route, RevealRoute::containingFolder);
        QCOMPARE(opened.urls, QList<QUrl>{QUrl::fromLocalFile(QString::fromStdString(tree / "Other"))});

        QDesktopServices::unsetUrlHandler("file");
        QDBusConnection::disconnectFromBus("manager");
        bus.kill();
        bus.waitForFinished();
    }
};

QTEST_MAIN(PlatformDesktopTest)
#include "tst_desktop.moc"
