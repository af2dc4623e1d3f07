#include "services/directorywatcher.h"
#include "testtree.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <dirent.h>
#include <fstream>
#include <memory>

using namespace quillorn;
using quillorn::test::TestTree;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Counts the callbacks of one watcher and lets a test wait for them.
class Calls : public QObject {
    Q_OBJECT
public:
    std::function<void()> callback()
    {
        return [this] {
            ++count;
            Q_EMIT called();
        };
    }
    int count = 0;
Q_SIGNALS:
    void called();
};

// Open inotify descriptors of this process (thread pools open eventfds of their own).
int inotifyDescriptors()
{
    int count = 0;
    std::error_code ec;
    for (const auto &item : fs::directory_iterator("/proc/self/fd", ec)) {
        const fs::path target = fs::read_symlink(item.path(), ec);
        if (!ec && target.native().find("inotify") != std::string::npos)
            ++count;
    }
    return count;
}

class DirectoryWatcherTest : public QObject {
    Q_OBJECT

private:
    static constexpr auto debounce = 100ms;
    static constexpr int quietMs = 400; // several debounce periods

    // Starts watching and waits for the call that announces the watch.
    static void startWatching(DirectoryWatcher &watcher, const fs::path &folder, Calls &calls)
    {
        QSignalSpy started(&calls, &Calls::called);
        watcher.watch(folder, calls.callback());
        QVERIFY(started.wait());
        QVERIFY(watcher.isWatching());
    }

private Q_SLOTS:
    void callsOnceWhenTheWatchStarts()
    {
        TestTree tree;
        DirectoryWatcher watcher(debounce);
        Calls calls;
        startWatching(watcher, tree.root(), calls);
        QSignalSpy more(&calls, &Calls::called);
        QVERIFY(!more.wait(quietMs));
        QCOMPARE(calls.count, 1);
    }

    void aNewFileIsReportedAfterTheDebounce()
    {
        TestTree tree;
        DirectoryWatcher watcher(debounce);
        Calls calls;
        startWatching(watcher, tree.root(), calls);
        QSignalSpy spy(&calls, &Calls::called);
        QElapsedTimer clock;
        clock.start();
        tree.file("new.txt");
        QVERIFY(spy.wait());
        QVERIFY2(clock.elapsed() >= debounce.count() - 5, "reported before the debounce ran out");
    }

    void aBurstOfTenFilesIsReportedOnce()
    {
        TestTree tree;
        DirectoryWatcher watcher(debounce);
        Calls calls;
        startWatching(watcher, tree.root(), calls);
        QSignalSpy spy(&calls, &Calls::called);
        for (int i = 0; i < 10; ++i)
            tree.file("file" + std::to_string(i));
        QVERIFY(spy.wait());
        QVERIFY(!spy.wait(quietMs));
        QCOMPARE(spy.count(), 1);
    }

    void contentWritesAreNotReported()
    {
        TestTree tree;
        const fs::path file = tree.file("notes.txt", "a");
        DirectoryWatcher watcher(debounce);
        Calls calls;
        startWatching(watcher, tree.root(), calls);
        QSignalSpy spy(&calls, &Calls::called);
        std::ofstream(file, std::ios::app) << "appended";
        QVERIFY(!spy.wait(quietMs));
    }

    void deletingOrRenamingTheWatchedFolderIsReported()
    {
        TestTree tree;
        const fs::path doomed = tree.folder("doomed");
        const fs::path moved = tree.folder("moved");
        DirectoryWatcher first(debounce), second(debounce);
        Calls firstCalls, secondCalls;
        startWatching(first, doomed, firstCalls);
        startWatching(second, moved, secondCalls);
        QSignalSpy deleted(&firstCalls, &Calls::called);
        QSignalSpy renamed(&secondCalls, &Calls::called);
        fs::remove(doomed);
        fs::rename(moved, tree / "elsewhere");
        QVERIFY(deleted.wait());
        QTRY_COMPARE(renamed.count(), 1);
    }

    void onlyTheLatestOfTwoQuickWatchesIsInstalled()
    {
        TestTree tree;
        const fs::path a = tree.folder("a");
        const fs::path b = tree.folder("b");
        const int descriptorsBefore = inotifyDescriptors();
        DirectoryWatcher watcher(debounce);
        Calls forA, forB;
        QSignalSpy spyA(&forA, &Calls::called);
        QSignalSpy spyB(&forB, &Calls::called);
        watcher.watch(a, forA.callback());
        watcher.watch(b, forB.callback());
        QVERIFY(spyB.wait());
        QVERIFY(!spyB.wait(quietMs)); // the superseded request's descriptor has arrived and closed by now
        QCOMPARE(spyA.count(), 0);
        QCOMPARE(spyB.count(), 1);
        QCOMPARE(inotifyDescriptors(), descriptorsBefore + 1);

        tree.file("a/in-a.txt");
        QVERIFY(!spyA.wait(quietMs));
        QCOMPARE(spyB.count(), 1);
        tree.file("b/in-b.txt");
        QVERIFY(spyB.wait());
        QCOMPARE(spyA.count(), 0);
    }

    void anUnopenableFolderIsSilentlyNotWatched()
    {
        TestTree tree;
        DirectoryWatcher watcher(debounce);
        Calls failed, working;
        QSignalSpy spy(&failed, &Calls::called);
        watcher.watch(tree / "missing", failed.callback());
        QVERIFY(!spy.wait(quietMs));
        QVERIFY(!watcher.isWatching());

        startWatching(watcher, tree.root(), working);
        QSignalSpy later(&working, &Calls::called);
        tree.file("x");
        QVERIFY(later.wait());
        QCOMPARE(failed.count, 0);
    }

    void destroyingTheWatcherCancelsAPendingCallback()
    {
        TestTree tree;
        auto watcher = std::make_unique<DirectoryWatcher>(debounce);
        Calls calls;
        startWatching(*watcher, tree.root(), calls);
        tree.file("late.txt");
        QTRY_VERIFY(watcher->isPending());
        watcher.reset();
        QSignalSpy spy(&calls, &Calls::called);
        QVERIFY(!spy.wait(quietMs));
        QCOMPARE(calls.count, 1);
    }

    void destroyingTheWatcherWhileItOpensIsSafe()
    {
        TestTree tree;
        Calls calls;
        QSignalSpy spy(&calls, &Calls::called);
        const int descriptorsBefore = inotifyDescriptors();
        for (int i = 0; i < 20; ++i) {
            DirectoryWatcher watcher(debounce);
            watcher.watch(tree.root(), calls.callback());
        }
        QVERIFY(!spy.wait(quietMs));
        QCOMPARE(inotifyDescriptors(), descriptorsBefore);
    }
};

QTEST_GUILESS_MAIN(DirectoryWatcherTest)
#include "tst_directorywatcher.moc"
