#include "platform/desktop/fileclipboard.h"
#include "platform/desktop/fileurl.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QTest>

using namespace quillorn;
namespace fs = std::filesystem;

using Paths = std::vector<fs::path>;
Q_DECLARE_METATYPE(Paths)

namespace {

std::unique_ptr<QMimeData> dataWith(const QString &type, const QByteArray &bytes)
{
    auto data = std::make_unique<QMimeData>();
    data->setData(type, bytes);
    return data;
}

} // namespace

class FileClipboardTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void roundTripKeepsBytesAndOrder();
    void writesTheFormsOtherFileManagersRead();
    void readsOtherFileManagersClipboards_data();
    void readsOtherFileManagersClipboards();
    void fileUrlKeepsInvalidUtf8Encoded();
    void systemClipboardCarriesFileReferences();
};

void FileClipboardTest::roundTripKeepsBytesAndOrder()
{
    const Paths items{"/tmp/z last", "/tmp/caf\xe9.txt", "/tmp/100% #1?.txt", "/tmp/line\nfeed", "/"};
    const auto data = FileClipboard::mimeData(items);
    QCOMPARE(FileClipboard::items(*data), items);
}

void FileClipboardTest::writesTheFormsOtherFileManagersRead()
{
    const auto data = FileClipboard::mimeData({"/home/u/a b.txt", "/home/u/Photos"});
    QCOMPARE(data->data("text/uri-list"),
             QByteArray("file:///home/u/a%20b.txt\r\nfile:///home/u/Photos\r\n"));
    QCOMPARE(data->data("x-special/gnome-copied-files"),
             QByteArray("copy\nfile:///home/u/a%20b.txt\nfile:///home/u/Photos"));
    QCOMPARE(data->text(), QStringLiteral("/home/u/a b.txt\n/home/u/Photos"));
}

void FileClipboardTest::readsOtherFileManagersClipboards_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Paths>("expected");

    QTest::newRow("GNOME copy only") << "x-special/gnome-copied-files"
                                     << QByteArray("copy\nfile:///srv/a%20b\nfile:///srv/c")
                                     << Paths{"/srv/a b", "/srv/c"};
    QTest::newRow("GNOME cut is pasted as a copy")
        << "x-special/gnome-copied-files" << QByteArray("cut\nfile:///srv/a\n") << Paths{"/srv/a"};
    QTest::newRow("uri list with comments and LF")
        << "text/uri-list" << QByteArray("# from a browser\nfile:///srv/a\n\nfile:///srv/b/\n")
        << Paths{"/srv/a", "/srv/b"};
    QTest::newRow("localhost and this host")
        << "text/uri-list" << QByteArray("file://localhost/srv/a\r\n") << Paths{"/srv/a"};
    QTest::newRow("other schemes and hosts are left out")
        << "text/uri-list"
        << QByteArray("https://example.org/a\r\nfile://fileserver.example/srv/x\r\nfile:///srv/kept\r\nsmb://"
                      "h/s\r\n")
        << Paths{"/srv/kept"};
    QTest::newRow("relative and NUL-carrying paths are refused")
        << "text/uri-list" << QByteArray("file:relative\r\nfile:///srv/a%00b\r\n") << Paths{};
    QTest::newRow("old KDE list") << "application/x-kde4-urilist" << QByteArray("file:///srv/k\r\n")
                                  << Paths{"/srv/k"};
    QTest::newRow("plain text is not a file reference") << "text/plain" << QByteArray("/srv/a") << Paths{};
}

void FileClipboardTest::readsOtherFileManagersClipboards()
{
    QFETCH(QString, type);
    QFETCH(QByteArray, bytes);
    QFETCH(Paths, expected);
    QCOMPARE(FileClipboard::items(*dataWith(type, bytes)), expected);
}

void FileClipboardTest::fileUrlKeepsInvalidUtf8Encoded()
{
    QCOMPARE(encodedFileUrl("/tmp/caf\xe9 x.txt"), QByteArray("file:///tmp/caf%E9%20x.txt"));
    const QUrl url = fileUrl("/tmp/caf\xe9.txt");
    QVERIFY(url.isValid());
    QCOMPARE(url.scheme(), QStringLiteral("file"));
    QCOMPARE(pathFromFileUrl(url.toEncoded()), fs::path("/tmp/caf\xe9.txt"));
    // A valid UTF-8 name gives the URL Qt itself would build.
    QCOMPARE(fileUrl("/tmp/Fotos ü/a.jpg"), QUrl::fromLocalFile(QStringLiteral("/tmp/Fotos ü/a.jpg")));
}

void FileClipboardTest::systemClipboardCarriesFileReferences()
{
    FileClipboard::write({"/srv/one", "/srv/two"});
    QCOMPARE(FileClipboard::read(), (Paths{"/srv/one", "/srv/two"}));

    // What GNOME Files leaves behind: only its own format.
    QGuiApplication::clipboard()->setMimeData(
        dataWith("x-special/gnome-copied-files", "copy\nfile:///srv/from%20nautilus").release());
    QCOMPARE(FileClipboard::read(), Paths{"/srv/from nautilus"});

    QGuiApplication::clipboard()->setText(QStringLiteral("just words"));
    QVERIFY(FileClipboard::read().empty());
}

QTEST_MAIN(FileClipboardTest)
#include "tst_fileclipboard.moc"
