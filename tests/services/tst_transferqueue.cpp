#include "asnobody.h"
#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "services/transferqueue.h"
#include "testtree.h"

#include <QSignalSpy>
#include <QTest>
#include <atomic>
#include <functional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

using namespace quillorn;
using namespace std::chrono_literals;

namespace {

// Holds a job until opened or cancelled; shared by pointer, so a failed test leaves no job reading its stack.
struct Gate {
    std::atomic<bool> open{false}, entered{false};
    void pass(OperationControl &control)
    {
        for (entered = true; !open; std::this_thread::sleep_for(2ms))
            control.check();
    }
};

// The log lines about one job, without their timestamps.
QStringList logLines(const QString &title)
{
    QStringList lines;
    const std::string log = test::TestTree::read(AppDiagnostics::shared().fileURL());
    for (const QString &line : QString::fromStdString(log).split('\n'))
        if ((line + '\n').contains(" title=" + title))
            lines << line.section(' ', 1);
    return lines;
}

// One field or answer of every row.
template <typename Member> QStringList column(const TransferQueue &queue, Member member)
{
    QStringList values;
    for (const QueueItem &item : queue.items())
        values << std::invoke(member, item);
    return values;
}

// The engine with each copied chunk held back, so a job's speed is steady and
// slow enough to be caught in the middle.
JobRunner slowedRunner(std::chrono::milliseconds delay)
{
    FileOperations::FileManager manager = FileOperations::FileManager::posix();
    manager.copyChunk = [copy = manager.copyChunk, delay](int input, int output, std::size_t limit,
                                                          const fs::path &source, const fs::path &target) {
        std::this_thread::sleep_for(delay);
        return copy(input, output, limit, source, target);
    };
    return JobRunner(FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                                    FileOperations::defaultVolumeIsLocal(), manager));
}

std::string pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
        bytes[index] = char(index * 31 % 251);
    return bytes;
}

} // namespace

class TransferQueueTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Before the first record: the shared log is created below this folder.
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString(m_data.root().string()));
        AppDiagnostics::shared().record("TEST START");
    }

    void jobsRunOneAtATimeInOrderEachEndingInItsState()
    {
        auto first = std::make_shared<Gate>(), last = std::make_shared<Gate>();
        TransferQueue queue(nullptr, 10);
        int completions = 0;
        queue.setCompleted([&](const QueueItem &) { ++completions; });
        const auto states = [&queue] { return column(queue, &QueueItem::stateText); };
        QList<QUuid> ids;
        for (int n = 1; n <= 5; ++n)
            ids << queue.enqueue("Job " + QString::number(n), [first, last, n](OperationControl &control) {
                if (n == 3)
                    throw CommanderError("An item named ‘a.txt’ already exists.");
                if (n == 4) // the row shows the system's reason, not the context
                    throw std::system_error(ENOENT, std::generic_category(), "while testing");
                (n == 1 ? first : last)->pass(control);
            });
        QTRY_VERIFY(first->entered);
        queue.cancel(ids[1]);
        queue.cancel(QUuid::createUuid()); // unknown: ignored
        QCOMPARE(states(), (QStringList{"Running", "Cancelled", "Waiting", "Waiting", "Waiting"}));
        QSignalSpy changed(&queue, &TransferQueue::itemsChanged);
        queue.clearFinished();
        queue.clearFinished(); // nothing left to clear, nothing published
        QCOMPARE(changed.count(), 1);
        QCOMPARE(states(), (QStringList{"Running", "Waiting", "Waiting", "Waiting"}));
        first->open = true;
        QTRY_VERIFY(last->entered);
        QVERIFY(queue.hasWork()); // the running job alone
        queue.cancel(ids[4]);
        QCOMPARE(states(), (QStringList{"Complete", "Failed: An item named ‘a.txt’ already exists.",
                                        "Failed: No such file or directory", "Running"}));
        QTRY_VERIFY(!queue.hasWork());
        QCOMPARE(states().last(), QStringLiteral("Cancelled — previously completed items remain"));
        QCOMPARE(completions, 4); // the job cancelled while waiting never ran
        QCOMPARE(logLines("Job 1"), (QStringList{"QUEUE ADDED title=Job 1", "QUEUE START title=Job 1",
                                                 "QUEUE COMPLETE title=Job 1"}));
        QVERIFY(logLines("Job 3").last().contains("FAILED title=Job 3 error=Quillorn.CommanderError"));
        QCOMPARE(logLines("Job 5").last(), QStringLiteral("QUEUE CANCELLED title=Job 5"));
    }

    // The items a complete job left under their final names reach the completion
    // callback, for the panes to put their cursors on: a failed job made nothing.
    void theCompletionTellsWhatAJobMade()
    {
        test::TestTree tree;
        const fs::path a = tree.file("a.txt", "a"), b = tree.file("b.txt", "b");
        TransferQueue queue(nullptr, 10);
        QList<std::vector<fs::path>> made;
        queue.setCompleted([&](const QueueItem &finished) { made << finished.made; });
        queue.enqueue("Copy", TransferJob{{a, b}, tree.root(), false, ConflictPolicy::keepBoth});
        queue.enqueue("Rename", RenameJob{a, "c.txt"});
        queue.enqueue("New folder", NewFolderJob{tree.root(), "d"});
        queue.enqueue("Rename again", RenameJob{tree / "missing", "e.txt"});
        QTRY_COMPARE(made.size(), 4);
        QCOMPARE(made[0], (std::vector<fs::path>{tree / "a (2).txt", tree / "b (2).txt"}));
        QCOMPARE(made[1], std::vector<fs::path>{tree / "c.txt"});
        QCOMPARE(made[2], std::vector<fs::path>{tree / "d"});
        QVERIFY(made[3].empty());
        QCOMPARE(queue.items()[0].made, made[0]);
    }

    void progressIsPolledAndSpeedWaitsAQuarterSecond()
    {
        TransferQueue queue(nullptr, 10);
        QElapsedTimer clock;
        bool earlySpeed = false;
        // Our clock starts before the queue's: a speed seen before 0.25 s here was early there too.
        connect(&queue, &TransferQueue::bytesPerSecondChanged, &queue,
                [&] { earlySpeed |= clock.nsecsElapsed() < 250'000'000 && queue.bytesPerSecond() != 0; });
        clock.start();
        queue.enqueue("Measured", [](OperationControl &control) {
            control.total(1'000'000);
            control.detail("Copying ‘big.bin’");
            for (int step = 0; step < 100; ++step) {
                control.add(1000);
                std::this_thread::sleep_for(5ms);
            }
        });
        QCOMPARE(queue.detail(), QStringLiteral("Preparing"));
        QTRY_COMPARE(queue.detail(), QStringLiteral("Copying ‘big.bin’"));
        QCOMPARE(queue.total(), std::int64_t(1'000'000));
        QTRY_VERIFY(queue.bytesPerSecond() > 0);
        QVERIFY(queue.bytesPerSecond() <= queue.bytes() / 0.25); // an average since the start
        QTRY_VERIFY(!queue.running());
        QVERIFY(!earlySpeed);
        // The last job's final figures stay for the view.
        QCOMPARE(queue.bytes(), std::int64_t(100'000));
        QCOMPARE(queue.detail(), QStringLiteral("Copying ‘big.bin’"));
    }

    void destroyingTheQueueStopsTheRunningJob()
    {
        auto queue = std::make_unique<TransferQueue>(nullptr, 10);
        auto gate = std::make_shared<Gate>();
        queue->enqueue("Long", [gate](OperationControl &control) { gate->pass(control); });
        QTRY_VERIFY(gate->entered);
        queue.reset();
        QTRY_COMPARE(gate.use_count(), 1); // the job has ended and its thread let go of it
        QTest::qWait(50);                  // the late outcome must not reach the dead queue
    }

    void aPausedJobWritesNothingHoldsTheQueueAndResumesOrCancelsCleanly()
    {
        for (const bool resume : {true, false}) {
            test::TestTree tree;
            const std::string bytes = pattern(12 * FileOperations::chunkSize + 7);
            const fs::path source = tree.file("src/big.bin", bytes), dst = tree.folder("dst");
            TransferQueue queue(nullptr, 10);
            queue.setRunner(slowedRunner(std::chrono::milliseconds(40)));
            const QString title = resume ? "Paused copy" : "Cancelled copy";
            const QUuid id = queue.enqueue(title, TransferJob{{source}, dst, false, ConflictPolicy::stop});
            const QUuid next = queue.enqueue(title + " next", [](OperationControl &) {});
            QTRY_VERIFY(queue.bytes() >= std::int64_t(FileOperations::chunkSize));
            queue.pause(id);
            QCOMPARE(queue.items()[0].stateText(), QStringLiteral("Paused"));
            QVERIFY(queue.hasWork() && queue.running());
            // The chunk in flight lands; after that the copy, a file with no
            // name yet, holds still, and nothing shows in the folder.
            QTest::qWait(150);
            const fs::path staging = test::unnamedFileIn(dst);
            QVERIFY(!staging.empty());
            QVERIFY(fs::is_empty(dst));
            const auto held = fs::file_size(staging);
            QTest::qWait(700);
            QCOMPARE(fs::file_size(staging), held);
            QVERIFY(held < bytes.size());
            QCOMPARE(queue.items()[1].stateText(), QStringLiteral("Waiting")); // nothing else starts
            if (resume) {
                queue.resume(id);
                QTRY_VERIFY_WITH_TIMEOUT(!queue.hasWork(), 20000);
                QVERIFY(test::TestTree::read(dst / "big.bin") == bytes);
            } else {
                queue.cancel(id);
                QTRY_VERIFY(!queue.hasWork());
                QVERIFY(fs::is_empty(dst));
            }
            QCOMPARE(queue.items()[1].id, next);
            QCOMPARE(column(queue, &QueueItem::stateText),
                     (QStringList{resume ? "Complete" : "Cancelled — previously completed items remain",
                                  "Complete"}));
            QStringList expected{"QUEUE ADDED title=" + title, "QUEUE START title=" + title,
                                 "QUEUE PAUSED title=" + title};
            expected << (resume ? QStringList{"QUEUE RESUMED title=" + title, "QUEUE COMPLETE title=" + title}
                                : QStringList{"QUEUE CANCELLED title=" + title});
            QCOMPARE(logLines(title + '\n'), expected);
        }
    }

    void waitingJobsRunInTheOrderTheyWereMovedTo()
    {
        auto gate = std::make_shared<Gate>();
        TransferQueue queue(nullptr, 10);
        const QUuid first =
            queue.enqueue("Order first", [gate](OperationControl &control) { gate->pass(control); });
        QList<QUuid> ids;
        for (const char *name : {"Order A", "Order B", "Order C"})
            ids << queue.enqueue(name, [](OperationControl &) {});
        QTRY_VERIFY(gate->entered);
        QVERIFY(!queue.move(first, 3)); // the running job stays where it is
        QVERIFY(queue.move(ids[2], 0)); // never ahead of the running job
        QCOMPARE(queue.items()[0].id, first);
        QVERIFY(queue.moveAmongWaiting(ids[0], 1));   // A below B
        QVERIFY(!queue.moveAmongWaiting(ids[2], -1)); // C is the first waiting job already
        QCOMPARE(column(queue, &QueueItem::title),
                 (QStringList{"Order first", "Order C", "Order B", "Order A"}));
        gate->open = true;
        QTRY_VERIFY(!queue.hasWork());
        QCOMPARE(logLines("Order").filter("QUEUE START"),
                 (QStringList{"QUEUE START title=Order first", "QUEUE START title=Order C",
                              "QUEUE START title=Order B", "QUEUE START title=Order A"}));
    }

    void timeLeftFallsAtASteadySpeedAndNeverShowsForAnUnknownTotal()
    {
        test::TestTree tree;
        const fs::path source = tree.file("src/steady.bin", pattern(10 * FileOperations::chunkSize));
        TransferQueue queue(nullptr, 10);
        queue.setRunner(slowedRunner(std::chrono::milliseconds(60)));
        QList<double> estimates;
        connect(&queue, &TransferQueue::bytesChanged, &queue, [&] {
            if (const auto left = queue.secondsLeft())
                estimates << *left;
        });
        queue.enqueue("Steady", TransferJob{{source}, tree.folder("dst"), false, ConflictPolicy::stop});
        QTRY_VERIFY_WITH_TIMEOUT(!queue.hasWork(), 20000);
        QVERIFY2(estimates.size() >= 4, qPrintable(QString::number(estimates.size())));
        for (qsizetype index = 1; index < estimates.size(); ++index)
            QVERIFY2(estimates[index] < estimates[index - 1], qPrintable(QString::number(index)));

        // Bytes and speed, but no total: no estimate at any moment.
        bool shown = false;
        disconnect(&queue, &TransferQueue::bytesChanged, &queue, nullptr);
        connect(&queue, &TransferQueue::bytesChanged, &queue,
                [&] { shown |= queue.secondsLeft().has_value(); });
        queue.enqueue("Unmeasured", [](OperationControl &control) {
            for (int step = 0; step < 60; ++step) {
                control.add(1000);
                std::this_thread::sleep_for(5ms);
            }
        });
        QTRY_VERIFY(!queue.hasWork());
        QVERIFY(queue.bytes() == 60'000 && !shown);
    }

    void waitingJobsAreMeasuredForTheHeader()
    {
        test::TestTree tree;
        const fs::path a = tree.file("a.bin", pattern(3000)), b = tree.file("b/c.bin", pattern(500));
        auto gate = std::make_shared<Gate>();
        TransferQueue queue(nullptr, 10);
        queue.enqueue("Holding", [gate](OperationControl &control) { gate->pass(control); });
        QTRY_VERIFY(gate->entered);
        QVERIFY(!queue.waitingBytes()); // nothing waits
        queue.enqueue("Copy a", TransferJob{{a}, tree.folder("dst"), false, ConflictPolicy::stop});
        queue.enqueue("Copy b", TransferJob{{tree / "b"}, tree / "dst", false, ConflictPolicy::stop});
        QTRY_COMPARE(queue.waitingBytes(), std::optional<std::int64_t>(3500));
        const QUuid unknown = queue.enqueue("Opaque", [](OperationControl &) {});
        QVERIFY(!queue.waitingBytes()); // a job whose size cannot be known beforehand
        queue.cancel(unknown);
        QCOMPARE(queue.waitingBytes(), std::optional<std::int64_t>(3500));
        gate->open = true;
        QTRY_VERIFY(!queue.hasWork());
    }

    // One rename moves the folder whole, as mv does, so nothing inside it needs
    // to be read: a folder inside that the user may not list must not refuse it.
    void aMoveWithinOneVolumeIsMeasuredAndRunPastAFolderTheUserCannotList()
    {
        if (!test::runningAsRoot())
            QSKIP("needs root to act as the user nobody");
        test::TestTree tree;
        fs::permissions(tree.root(), fs::perms::all);
        const fs::path box = tree.folder("src/box"), dst = tree.folder("dst");
        tree.file("src/box/plain.bin", pattern(700));
        const fs::path locked = tree.file("src/box/locked/secret.bin", pattern(300)).parent_path();
        for (const auto &item : fs::recursive_directory_iterator(tree.root()))
            QCOMPARE(::lchown(item.path().c_str(), test::AsNobody::user, test::AsNobody::group), 0);
        QCOMPARE(::chmod(locked.c_str(), 0), 0);
        const TransferJob move{{box}, dst, true, ConflictPolicy::stop};
        const TransferJob copy{{box}, dst, false, ConflictPolicy::stop};
        std::optional<std::int64_t> measured;
        std::string moveFailure, copyMeasure;
        {
            const test::AsNobody nobody;
            if (!nobody.skipReason.empty())
                QSKIP(nobody.skipReason.c_str());
            OperationControl control;
            try {
                JobRunner::measure(copy, control);
            } catch (const std::exception &error) {
                copyMeasure = error.what();
            }
            try {
                measured = JobRunner::measure(move, control);
                JobRunner().run(move, control);
            } catch (const std::exception &error) {
                moveFailure = error.what();
            }
        }
        QCOMPARE(copyMeasure, (locked.string() + ": Permission denied")); // a copy must read it all
        QCOMPARE(moveFailure, std::string());
        QCOMPARE(measured, std::optional<std::int64_t>(700));
        QVERIFY(!fs::exists(box));
        QCOMPARE(test::TestTree::read(dst / "box/plain.bin"), pattern(700));
        QCOMPARE(test::TestTree::read(dst / "box/locked/secret.bin"), pattern(300));
        QCOMPARE(fs::status(dst / "box/locked").permissions(), fs::perms::none);
    }

private:
    test::TestTree m_data;
};

QTEST_GUILESS_MAIN(TransferQueueTest)
#include "tst_transferqueue.moc"
