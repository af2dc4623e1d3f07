#include "asnobody.h"
#include "platform/desktop/detail/quicklookcontent.h"
#include "platform/desktop/fileclipboard.h"
#include "platform/desktop/standarddesktopservices.h"
#include "testtree.h"

#include <QApplication>
#include <QClipboard>
#include <QDialog>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <sys/stat.h>

using namespace quillorn;
using detail::QuickLookContent;
using quillorn::test::AsNobody;
using quillorn::test::TestTree;
namespace fs = std::filesystem;
using Paths = std::vector<fs::path>;

// Clipboard and quick look: the desktop side of the platform layer.
class PlatformDesktopTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Over the window, X11 would hand the keyboard to the window the sheet blocks.
    void anAlertAskedForWhileASheetIsUpGoesOverTheSheet()
    {
        QWidget window;
        window.show();
        auto *sheet = new QDialog(&window);
        sheet->setWindowModality(Qt::WindowModal);
        sheet->open();
        QTRY_COMPARE(QApplication::activeModalWidget(), sheet);
        QWidget *alertOwner = nullptr;
        QTimer::singleShot(0, [&] {
            auto *alert = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            alertOwner = alert ? alert->parentWidget() : nullptr;
            if (alert)
                alert->button(QMessageBox::Ok)->click();
        });
        standardDesktopServices(&window).alert({QStringLiteral("Asked"), QString(), {}});
        QCOMPARE(alertOwner, sheet);
    }

    void clipboardKeepsBytesAndSpeaksTheFormsOtherFileManagersUse()
    {
        const Paths items{"/tmp/z last", "/tmp/caf\xe9.txt", "/tmp/100% #1?.txt", "/tmp/line\nfeed", "/"};
        QCOMPARE(FileClipboard::items(*FileClipboard::mimeData(items)), items);
        FileClipboard::write({"/home/u/a b.txt", "/home/u/Photos"});
        const QMimeData *written = QGuiApplication::clipboard()->mimeData();
        QCOMPARE(written->data("text/uri-list"), "file:///home/u/a%20b.txt\r\nfile:///home/u/Photos\r\n");
        QCOMPARE(written->data("x-special/gnome-copied-files"),
                 "copy\nfile:///home/u/a%20b.txt\nfile:///home/u/Photos");
        QCOMPARE(written->text(), "/home/u/a b.txt\n/home/u/Photos");
        QCOMPARE(FileClipboard::read(), (Paths{"/home/u/a b.txt", "/home/u/Photos"}));
        const char *gnome = "x-special/gnome-copied-files", *uris = "text/uri-list";
        const std::tuple<const char *, QByteArray, Paths> cases[] = {
            {gnome, "copy\nfile:///srv/a%20b\nfile:///srv/c", {"/srv/a b", "/srv/c"}},
            {gnome, "cut\nfile:///srv/a\n", {"/srv/a"}},
            {uris, "# from a browser\nfile://localhost/srv/a\n\nfile:///srv/b/\n", {"/srv/a", "/srv/b"}},
            {uris,
             "https://example.org/a\r\nfile://fileserver.example/srv/x\r\nfile:///srv/kept\r\n",
             {"/srv/kept"}},
            {uris, "file:relative\r\nfile:///srv/a%00b\r\n", {}},
            {"application/x-kde4-urilist", "file:///srv/k\r\n", {"/srv/k"}},
            {"text/plain", "/srv/a", {}},
        };
        for (const auto &[type, bytes, expected] : cases) {
            auto *data = new QMimeData;
            data->setData(type, bytes);
            QGuiApplication::clipboard()->setMimeData(data);
            QVERIFY2(FileClipboard::read() == expected, bytes.constData());
            QCOMPARE(FileClipboard::readIsCut(), bytes.startsWith("cut"));
        }
        // Cut: GNOME's mark and KDE's, which Dolphin reads beside the URI list.
        const auto cut = FileClipboard::mimeData({"/srv/a"}, true);
        QCOMPARE(cut->data(gnome), "cut\nfile:///srv/a");
        QCOMPARE(cut->data("application/x-kde-cutselection"), "1");
        QVERIFY(FileClipboard::isCut(*cut) && !FileClipboard::isCut(*FileClipboard::mimeData({"/srv/a"})));
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
            const AsNobody nobody; // as root the mode would not stop us
            if (!nobody.skipReason.empty())
                return -1;
            try {
                QuickLookContent::load(item);
            } catch (const std::system_error &error) {
                return error.code().value();
            }
            return 0;
        };
        QCOMPARE(codeOf(tree.symlink("dangling", tree / "nowhere")), ENOENT);
        QCOMPARE(codeOf(secret), EACCES);
    }
};

QTEST_MAIN(PlatformDesktopTest)
#include "tst_desktop.moc"
