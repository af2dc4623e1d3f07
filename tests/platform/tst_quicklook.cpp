#include "platform/desktop/bytecount.h"
#include "platform/desktop/detail/quicklookcontent.h"
#include "platform/desktop/quicklook.h"
#include "testtree.h"

#include <QApplication>
#include <QLabel>
#include <QPlainTextEdit>
#include <QTest>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>

using namespace quillorn;
using detail::QuickLookContent;
namespace fs = std::filesystem;

namespace {

fs::path savePicture(test::TestTree &tree, const std::string &name, QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    const fs::path path = tree / name;
    if (!image.save(QString::fromStdString(path.string()), "PNG"))
        throw std::runtime_error("cannot save test picture");
    return path;
}

QList<QuickLook *> openQuickLooks()
{
    QList<QuickLook *> windows;
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (auto *look = qobject_cast<QuickLook *>(widget); look && look->isVisible())
            windows << look;
    return windows;
}

} // namespace

class QuickLookTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void picturesAreDecoded();
    void hugePicturesAreDecodedSmaller();
    void textShowsOnlyItsFirstBytes();
    void binaryFilesAreDescribed();
    void foldersAndPipesAreDescribedWithoutReading();
    void missingItemCannotBeRead();
    void unreadableFileCannotBeRead();

    void showOpensAWindowOnceRead();
    void showReportsWhyAnItemCannotBePreviewed();
    void pictureIsScaledDownToTheWindow();
};

void QuickLookTest::cleanup()
{
    for (QuickLook *look : openQuickLooks())
        delete look;
}

void QuickLookTest::picturesAreDecoded()
{
    test::TestTree tree;
    const auto content = QuickLookContent::load(savePicture(tree, "shot.png", {40, 30}));
    QCOMPARE(content.kind, QuickLookContent::Kind::image);
    QCOMPARE(content.image.size(), QSize(40, 30));
    QCOMPARE(content.title, QStringLiteral("shot.png"));
}

void QuickLookTest::hugePicturesAreDecodedSmaller()
{
    test::TestTree tree;
    const auto content = QuickLookContent::load(savePicture(tree, "panorama.png", {8192, 64}));
    QCOMPARE(content.kind, QuickLookContent::Kind::image);
    QCOMPARE(content.image.size(), QSize(4096, 32));
}

void QuickLookTest::textShowsOnlyItsFirstBytes()
{
    test::TestTree tree;
    const auto small = QuickLookContent::load(tree.file("notes.txt", "Grüße\nline two\n"));
    QCOMPARE(small.kind, QuickLookContent::Kind::text);
    QCOMPARE(small.text, QStringLiteral("Grüße\nline two\n"));
    QVERIFY(!small.truncated);

    // The limit falls inside a two-byte character: it is left out, not mangled.
    std::string big(QuickLookContent::textLimit - 1, 'x');
    big += "é and more";
    const auto large = QuickLookContent::load(tree.file("big.log", big));
    QCOMPARE(large.kind, QuickLookContent::Kind::text);
    QVERIFY(large.truncated);
    QCOMPARE(large.text.size(), qsizetype(QuickLookContent::textLimit - 1));
    QVERIFY(!large.text.contains(QChar::ReplacementCharacter));
}

void QuickLookTest::binaryFilesAreDescribed()
{
    test::TestTree tree;
    const fs::path file = tree.file("data.bin", std::string("\x00\x01\x02\x03", 4) + std::string(1000, 'z'));
    const auto content = QuickLookContent::load(file);
    QCOMPARE(content.kind, QuickLookContent::Kind::facts);
    const QStringList lines = content.text.split('\n');
    QCOMPARE(lines.value(0), QStringLiteral("Name: data.bin"));
    QCOMPARE(lines.value(1), QStringLiteral("Size: %1 (%2 bytes)")
                                 .arg(formattedByteCount(1004), QLocale().toString(qint64(1004))));
    QVERIFY(lines.value(2).startsWith(QStringLiteral("Kind: ")));
    QVERIFY(content.text.contains(QStringLiteral("Where: ") + QString::fromStdString(tree.root().string())));
}

void QuickLookTest::foldersAndPipesAreDescribedWithoutReading()
{
    test::TestTree tree;
    const auto folder = QuickLookContent::load(tree.folder("Photos"));
    QCOMPARE(folder.kind, QuickLookContent::Kind::facts);
    QVERIFY(folder.text.contains(QStringLiteral("Kind: Folder")));
    QVERIFY(!folder.text.contains(QStringLiteral("Size: ")));

    // Opening a pipe for reading would block until a writer comes: it must not be opened.
    const fs::path pipe = tree / "pipe";
    QCOMPARE(::mkfifo(pipe.c_str(), 0600), 0);
    const auto described = QuickLookContent::load(pipe);
    QCOMPARE(described.kind, QuickLookContent::Kind::facts);
    QVERIFY(described.text.contains(QStringLiteral("Kind: Named pipe")));
}

void QuickLookTest::missingItemCannotBeRead()
{
    test::TestTree tree;
    tree.symlink("dangling", tree / "nowhere");
    try {
        QuickLookContent::load(tree / "dangling");
        QFAIL("a dangling link was previewed");
    } catch (const std::system_error &error) {
        QCOMPARE(error.code().value(), ENOENT);
    }
}

void QuickLookTest::unreadableFileCannotBeRead()
{
    test::TestTree tree;
    const fs::path secret = tree.file("secret.txt", "private");
    fs::permissions(secret, fs::perms::none);
    // The folder stays open to everyone, so it is the file itself that refuses.
    fs::permissions(tree.root(), fs::perms::owner_all | fs::perms::others_exec | fs::perms::group_exec);
    // As root the mode would not stop us: the reading thread alone becomes
    // nobody (the raw system call changes only the calling thread's credentials,
    // and with them its capabilities).
    int code = 0;
    std::thread reader([&] {
        if (::geteuid() == 0 && ::syscall(SYS_setresuid, 65534, 65534, 65534) != 0) {
            code = -errno;
            return;
        }
        try {
            QuickLookContent::load(secret);
        } catch (const std::system_error &error) {
            code = error.code().value();
        }
    });
    reader.join();
    QCOMPARE(code, EACCES);
}

void QuickLookTest::showOpensAWindowOnceRead()
{
    test::TestTree tree;
    bool failed = false;
    QuickLook::preview(tree.file("readme.md", "# Title\n"), [&](const QString &) { failed = true; });
    QTRY_COMPARE_WITH_TIMEOUT(openQuickLooks().size(), 1, 5000);
    QuickLook *look = openQuickLooks().front();
    QCOMPARE(look->windowTitle(), QStringLiteral("readme.md"));
    auto *text = look->findChild<QPlainTextEdit *>();
    QVERIFY(text);
    QVERIFY(text->isReadOnly());
    QCOMPARE(text->toPlainText(), QStringLiteral("# Title\n"));
    QVERIFY(!failed);

    QTest::keyClick(look, Qt::Key_Escape);
    QTRY_VERIFY(openQuickLooks().isEmpty());
}

void QuickLookTest::showReportsWhyAnItemCannotBePreviewed()
{
    test::TestTree tree;
    QString reason;
    QuickLook::preview(tree / "gone.txt", [&](const QString &why) { reason = why; });
    QTRY_COMPARE_WITH_TIMEOUT(reason, QStringLiteral("No such file or directory"), 5000);
    QVERIFY(openQuickLooks().isEmpty());
}

void QuickLookTest::pictureIsScaledDownToTheWindow()
{
    test::TestTree tree;
    QuickLook look(QuickLookContent::load(savePicture(tree, "wide.png", {2000, 1000})));
    look.resize(420, 420);
    look.show();
    QVERIFY(QTest::qWaitForWindowExposed(&look));
    auto *picture = look.findChild<QLabel *>();
    QVERIFY(picture);
    const QPixmap shown = picture->pixmap();
    QVERIFY(shown.width() <= picture->width());
    QVERIFY(shown.height() <= picture->height());
    // Aspect ratio kept.
    QVERIFY(qAbs(shown.width() - 2 * shown.height()) <= 2);
}

QTEST_MAIN(QuickLookTest)
#include "tst_quicklook.moc"
