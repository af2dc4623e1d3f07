#include "platform/core/inotifywatch.h"
#include "testtree.h"

#include <QSignalSpy>
#include <QTest>
#include <system_error>

using namespace quillorn;
using quillorn::test::TestTree;
namespace fs = std::filesystem;

class InotifyWatchTest : public QObject {
    Q_OBJECT

private:
    // No event arrives within this long when nothing should be reported.
    static constexpr int quietMs = 250;

private Q_SLOTS:
    void reportsChangesToTheFolderEntries()
    {
        TestTree tree;
        const fs::path old = tree.file("old.txt", "x");
        const fs::path folder = tree.folder("sub");
        InotifyWatch watch(InotifyWatch::open(tree.root()));
        QSignalSpy spy(&watch, &InotifyWatch::changed);

        tree.file("new.txt");
        QVERIFY(spy.wait());
        spy.clear();
        fs::rename(old, tree / "renamed.txt");
        QVERIFY(spy.wait());
        spy.clear();
        fs::remove(tree / "renamed.txt");
        QVERIFY(spy.wait());
        spy.clear();
        fs::permissions(folder, fs::perms::owner_all | fs::perms::group_read);
        QVERIFY(spy.wait());
    }

    void changesInsideSubfoldersAreNotReported()
    {
        TestTree tree;
        tree.folder("sub");
        InotifyWatch watch(InotifyWatch::open(tree.root()));
        QSignalSpy spy(&watch, &InotifyWatch::changed);
        tree.file("sub/deep.txt");
        QVERIFY(!spy.wait(quietMs));
    }

    void watchesAFolderWhoseNameIsNotUtf8()
    {
        TestTree tree;
        const fs::path folder = tree.folder(fs::path(std::string("caf\xe9-\xff")));
        InotifyWatch watch(InotifyWatch::open(folder));
        QSignalSpy spy(&watch, &InotifyWatch::changed);
        tree.file(folder / std::string("n\xe9w"));
        QVERIFY(spy.wait());
    }

    void openFailsWithTheSystemError()
    {
        TestTree tree;
        const fs::path file = tree.file("plain.txt");
        const auto codeOf = [](const fs::path &path) {
            try {
                InotifyWatch::open(path);
            } catch (const std::system_error &error) {
                return error.code().value();
            }
            return 0;
        };
        QCOMPARE(codeOf(tree / "missing"), ENOENT);
        QCOMPARE(codeOf(file), ENOTDIR);
    }
};

QTEST_GUILESS_MAIN(InotifyWatchTest)
#include "tst_inotifywatch.moc"
