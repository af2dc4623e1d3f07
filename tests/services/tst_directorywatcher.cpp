#include "refusedwatches.h"
#include "services/directorywatcher.h"
#include "testtree.h"

#include <QSignalSpy>
#include <QTest>
#include <fstream>

using namespace quillorn;
using quillorn::test::TestTree;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr auto debounce = 100ms;

// Several debounce periods: whatever was going to be called has been.
constexpr int quietMs = 400;

// Open inotify descriptors of this process (thread pools open eventfds of their own).
int inotifyDescriptors()
{
    int count = 0;
    std::error_code ec;
    for (const auto &item : fs::directory_iterator("/proc/self/fd", ec))
        count += fs::read_symlink(item.path(), ec).native().find("inotify") != std::string::npos;
    return count;
}

} // namespace

class DirectoryWatcherTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void announcesTheWatchThenCallsOncePerBurstUnlessDestroyed()
    {
        TestTree tree;
        const fs::path notes = tree.file("watched/notes.txt", "a");
        int calls = 0; // declared before the watcher, so it outlives the watcher's callback
        auto watcher = std::make_unique<DirectoryWatcher>(debounce);
        watcher->watch(tree / "watched", [&] { ++calls; });
        QTRY_COMPARE(calls, 1);
        std::ofstream(notes, std::ios::app) << "appended"; // contents, not entries
        QTest::qWait(quietMs);
        QCOMPARE(calls, 1);

        for (int i = 0; i < 10; ++i)
            tree.file("watched/file" + std::to_string(i));
        QTest::qWait(debounce.count() - 20);
        QCOMPARE(calls, 1); // the debounce has not run out yet
        QTRY_COMPARE(calls, 2);
        QTest::qWait(quietMs);
        QCOMPARE(calls, 2);
        fs::rename(tree / "watched", tree / "moved"); // the pane's folder is gone
        QTRY_COMPARE(calls, 3);
        tree.file("moved/late.txt");
        QTRY_VERIFY(watcher->isPending());
        watcher.reset();
        QTest::qWait(quietMs);
        QCOMPARE(calls, 3);
    }

    void failedSupersededAndDestroyedWatchesStaySilentAndHoldNoDescriptor()
    {
        TestTree tree;
        const int descriptorsBefore = inotifyDescriptors();
        int destroyed = 0, missing = 0, forA = 0, forB = 0;
        for (int i = 0; i < 20; ++i) // each destroyed while its watch opens
            DirectoryWatcher(debounce).watch(tree.root(), [&] { ++destroyed; });
        DirectoryWatcher watcher(debounce);
        watcher.watch(tree / "missing", [&] { ++missing; });
        QTest::qWait(quietMs);
        QVERIFY(!watcher.isWatching());
        QCOMPARE(inotifyDescriptors(), descriptorsBefore);

        watcher.watch(tree.folder("a"), [&] { ++forA; });
        watcher.watch(tree.folder("b"), [&] { ++forB; });
        QTRY_COMPARE(forB, 1);
        QTest::qWait(quietMs); // the superseded request's descriptor has arrived and closed by now
        QCOMPARE(inotifyDescriptors(), descriptorsBefore + 1);
        tree.file("a/in-a.txt");
        fs::remove(tree / "b"); // the pane's folder is gone
        QTRY_COMPARE(forB, 2);
        QTest::qWait(quietMs);
        QCOMPARE(destroyed + missing + forA, 0);
        QVERIFY(!watcher.isPolling()); // neither a missing folder nor a watched one is read on a timer
    }

    // Without any inotify watch left, the folder is read again on a timer instead
    // and the watcher says so; moving on to another such folder keeps saying it.
    void refusedWatchesFallBackToReadingTheFolderAgain()
    {
        if (!quillorn::test::watchesRefused()) {
            const auto [status, output] =
                quillorn::test::runWithWatchesRefused("refusedWatchesFallBackToReadingTheFolderAgain");
            if (status == 77)
                QSKIP(output.c_str());
            QVERIFY2(status == 0, output.c_str());
            return;
        }
        TestTree tree;
        int calls = 0, forOther = 0;
        DirectoryWatcher watcher(debounce);
        QSignalSpy polling(&watcher, &DirectoryWatcher::pollingChanged);
        watcher.watch(tree.folder("watched"), [&] { ++calls; });
        QTRY_VERIFY(watcher.isPolling());
        QCOMPARE(calls, 1); // announced at once, as a watch that starts is
        QVERIFY(!watcher.isWatching());
        tree.file("watched/outside.txt");
        QTRY_VERIFY_WITH_TIMEOUT(calls >= 2, 3 * int(DirectoryWatcher::fallbackInterval.count()));

        watcher.watch(tree.folder("other"), [&] { ++forOther; });
        QTRY_COMPARE(forOther, 1);
        QVERIFY(watcher.isPolling());
        QCOMPARE(polling.count(), 1);
        const int before = calls;
        QTRY_VERIFY_WITH_TIMEOUT(forOther >= 2, 3 * int(DirectoryWatcher::fallbackInterval.count()));
        QCOMPARE(calls, before); // the first folder is no longer read
    }
};

QTEST_GUILESS_MAIN(DirectoryWatcherTest)
#include "tst_directorywatcher.moc"
