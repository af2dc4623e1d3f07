#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "services/transferqueue.h"
#include "testtree.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <system_error>
#include <thread>

using namespace quillorn;
using namespace std::chrono_literals;

namespace {

// A gate a job waits at until the test opens it (or the job is cancelled).
// Jobs hold it (and every other shared fact) through a shared_ptr: a test that
// fails early must not leave a job reading its stack.
struct Gate {
    std::atomic<bool> open{false};
    std::atomic<bool> entered{false};

    void pass(OperationControl &control)
    {
        entered = true;
        while (!open) {
            control.check();
            std::this_thread::sleep_for(2ms);
        }
    }
};

QString stateOf(const TransferQueue &queue, const QUuid &id)
{
    for (const QueueItem &item : queue.items())
        if (item.id == id)
            return item.state;
    return QStringLiteral("<gone>");
}

QStringList logLinesSince(std::size_t offset)
{
    const std::string text = test::TestTree::read(AppDiagnostics::shared().fileURL());
    QStringList lines;
    for (const QString &line : QString::fromStdString(text.substr(std::min(offset, text.size()))).split('\n'))
        if (!line.isEmpty())
            lines << line.section(' ', 1); // without the timestamp
    return lines;
}

std::size_t logSize()
{
    return test::TestTree::read(AppDiagnostics::shared().fileURL()).size();
}

} // namespace

class TransferQueueTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void jobsRunOneAtATimeInOrder();
    void cancelledWaitingJobNeverStartsAndTheNextRuns();
    void cancelledRunningJobStaysRunningUntilItStops();
    void failingJobShowsItsMessageAndTheQueueGoesOn_data();
    void failingJobShowsItsMessageAndTheQueueGoesOn();
    void progressIsPolledAndSpeedWaitsAQuarterSecond();
    void clearFinishedKeepsRunningAndWaitingJobs();
    void logLinesFollowTheJob();
    void destroyingTheQueueStopsTheRunningJob();
    void realTransferReportsItsBytes();

private:
    QTemporaryDir m_data;
};

void TransferQueueTest::initTestCase()
{
    QVERIFY(m_data.isValid());
    // Before the first record: the shared log is created below this folder.
    qputenv("XDG_DATA_HOME", m_data.path().toUtf8());
    AppDiagnostics::shared().record("TEST START");
    QVERIFY(AppDiagnostics::shared().fileURL().string().starts_with(m_data.path().toStdString()));
}

void TransferQueueTest::jobsRunOneAtATimeInOrder()
{
    struct Probe {
        std::atomic<int> active{0};
        std::atomic<int> mostActive{0};
        std::mutex lock;
        std::vector<int> order;
        Gate last;
    };
    auto probe = std::make_shared<Probe>();
    TransferQueue queue(nullptr, 10);
    int completions = 0;
    queue.setCompleted([&] { ++completions; });

    QList<QUuid> ids;
    for (int n = 1; n <= 3; ++n) {
        ids << queue.enqueue(QStringLiteral("Job %1").arg(n), [n, probe](OperationControl &control) {
            probe->mostActive = std::max(probe->mostActive.load(), ++probe->active);
            std::this_thread::sleep_for(30ms);
            if (n == 3)
                probe->last.pass(control);
            {
                std::lock_guard guard(probe->lock);
                probe->order.push_back(n);
            }
            --probe->active;
        });
    }
    QCOMPARE(stateOf(queue, ids[0]), QStringLiteral("Running"));
    QCOMPARE(stateOf(queue, ids[1]), QStringLiteral("Waiting"));
    QVERIFY(queue.running());
    QVERIFY(queue.hasWork());

    // hasWork stays true until the third job has ended.
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(queue, ids[1]), QStringLiteral("Complete"), 5000);
    QVERIFY(queue.hasWork());
    probe->last.open = true;
    QTRY_VERIFY_WITH_TIMEOUT(!queue.hasWork(), 5000);

    QCOMPARE(stateOf(queue, ids[2]), QStringLiteral("Complete"));
    QCOMPARE(probe->order, (std::vector<int>{1, 2, 3}));
    QCOMPARE(probe->mostActive.load(), 1);
    QCOMPARE(completions, 3);
    QVERIFY(!queue.running());
}

void TransferQueueTest::cancelledWaitingJobNeverStartsAndTheNextRuns()
{
    TransferQueue queue(nullptr, 10);
    auto gate = std::make_shared<Gate>();
    auto secondRan = std::make_shared<std::atomic<bool>>(false);
    int completions = 0;
    queue.setCompleted([&] { ++completions; });

    const QUuid first = queue.enqueue("First", [gate](OperationControl &control) { gate->pass(control); });
    const QUuid second = queue.enqueue("Second", [secondRan](OperationControl &) { *secondRan = true; });
    const QUuid third = queue.enqueue("Third", [](OperationControl &) {});

    queue.cancel(second);
    QCOMPARE(stateOf(queue, second), QStringLiteral("Cancelled"));
    QVERIFY(queue.hasWork());
    queue.cancel(QUuid::createUuid()); // unknown id: nothing happens

    gate->open = true;
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(queue, third), QStringLiteral("Complete"), 5000);
    QCOMPARE(stateOf(queue, first), QStringLiteral("Complete"));
    QCOMPARE(stateOf(queue, second), QStringLiteral("Cancelled"));
    QVERIFY(!*secondRan);
    QCOMPARE(completions, 2); // the cancelled job never ended, so it was never reported
}

void TransferQueueTest::cancelledRunningJobStaysRunningUntilItStops()
{
    TransferQueue queue(nullptr, 10);
    auto gate = std::make_shared<Gate>();
    const std::size_t logStart = logSize();
    const QUuid id =
        queue.enqueue("Copy 3 → Photos", [gate](OperationControl &control) { gate->pass(control); });
    const QUuid next = queue.enqueue("Next", [](OperationControl &) {});
    QTRY_VERIFY_WITH_TIMEOUT(gate->entered.load(), 5000);

    queue.cancel(id);
    QCOMPARE(stateOf(queue, id), QStringLiteral("Running"));
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(queue, id),
                              QStringLiteral("Cancelled — previously completed items remain"), 5000);
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(queue, next), QStringLiteral("Complete"), 5000);
    QVERIFY(logLinesSince(logStart).contains(QStringLiteral("QUEUE CANCELLED title=Copy 3 → Photos")));
}

void TransferQueueTest::failingJobShowsItsMessageAndTheQueueGoesOn_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("logged");
    QTest::newRow("commander error") << 0 << QStringLiteral("Failed: An item named ‘a.txt’ already exists.")
                                     << QStringLiteral(
                                            "QUEUE FAILED title=Failing error=Quillorn.CommanderError "
                                            "code=1: An item named ‘a.txt’ already exists.");
    QTest::newRow("system error") << 1 << QStringLiteral("Failed: No such file or directory")
                                  << QStringLiteral(
                                         "QUEUE FAILED title=Failing error=POSIX code=2: No such file "
                                         "or directory");
}

void TransferQueueTest::failingJobShowsItsMessageAndTheQueueGoesOn()
{
    QFETCH(int, kind);
    QFETCH(QString, state);
    QFETCH(QString, logged);

    TransferQueue queue(nullptr, 10);
    const std::size_t logStart = logSize();
    const QUuid failing = queue.enqueue("Failing", [kind](OperationControl &) {
        if (kind == 0)
            throw CommanderError("An item named ‘a.txt’ already exists.");
        throw std::system_error(ENOENT, std::generic_category(), "while testing");
    });
    const QUuid after = queue.enqueue("After", [](OperationControl &) {});

    QTRY_COMPARE_WITH_TIMEOUT(stateOf(queue, after), QStringLiteral("Complete"), 5000);
    QCOMPARE(stateOf(queue, failing), state);
    const QStringList lines = logLinesSince(logStart);
    QVERIFY2(
        std::any_of(lines.begin(), lines.end(), [&](const QString &line) { return line.startsWith(logged); }),
        qPrintable(lines.join('\n')));
}

void TransferQueueTest::progressIsPolledAndSpeedWaitsAQuarterSecond()
{
    TransferQueue queue(nullptr, 10);
    QElapsedTimer sinceEnqueue;
    bool speedBeforeQuarterSecond = false;
    double lastSpeed = 0;
    connect(&queue, &TransferQueue::bytesPerSecondChanged, &queue, [&] {
        // Our clock starts before the queue's, so anything seen before 0.25 s here
        // was seen before 0.25 s by the queue too.
        if (sinceEnqueue.nsecsElapsed() < 250'000'000 && queue.bytesPerSecond() != 0)
            speedBeforeQuarterSecond = true;
        lastSpeed = queue.bytesPerSecond();
    });
    QSignalSpy detailSpy(&queue, &TransferQueue::detailChanged);

    auto stop = std::make_shared<std::atomic<bool>>(false);
    sinceEnqueue.start();
    queue.enqueue("Measured", [stop](OperationControl &control) {
        control.total(1'000'000);
        control.detail("Copying ‘big.bin’");
        while (!*stop) {
            control.check();
            control.add(1000);
            std::this_thread::sleep_for(5ms);
        }
    });
    QCOMPARE(queue.detail(), QStringLiteral("Preparing"));
    QTRY_COMPARE_WITH_TIMEOUT(queue.total(), std::int64_t(1'000'000), 5000);
    QTRY_COMPARE_WITH_TIMEOUT(queue.detail(), QStringLiteral("Copying ‘big.bin’"), 5000);
    QTRY_VERIFY_WITH_TIMEOUT(queue.bytesPerSecond() > 0, 5000);
    QVERIFY(sinceEnqueue.nsecsElapsed() > 250'000'000);
    QVERIFY(queue.bytes() > 0);
    // An average since the start: at most what was added over the elapsed time.
    QVERIFY(queue.bytesPerSecond() <= queue.bytes() / 0.25);
    *stop = true;
    QTRY_VERIFY_WITH_TIMEOUT(!queue.running(), 5000);
    QVERIFY(!speedBeforeQuarterSecond);
    QVERIFY(lastSpeed > 0);
    // After the end the last job's figures stay for the view.
    QVERIFY(queue.bytes() > 0);
    QCOMPARE(queue.detail(), QStringLiteral("Copying ‘big.bin’"));
    QVERIFY(detailSpy.count() >= 1);
}

void TransferQueueTest::clearFinishedKeepsRunningAndWaitingJobs()
{
    TransferQueue queue(nullptr, 10);
    auto gate = std::make_shared<Gate>();
    const QUuid done = queue.enqueue("Done", [](OperationControl &) {});
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(queue, done), QStringLiteral("Complete"), 5000);
    const QUuid failed = queue.enqueue("Failed", [](OperationControl &) { throw CommanderError("Nope."); });
    QTRY_COMPARE_WITH_TIMEOUT(stateOf(queue, failed), QStringLiteral("Failed: Nope."), 5000);
    const QUuid running =
        queue.enqueue("Running", [gate](OperationControl &control) { gate->pass(control); });
    const QUuid waiting = queue.enqueue("Waiting", [](OperationControl &) {});
    const QUuid cancelled = queue.enqueue("Cancelled", [](OperationControl &) {});
    queue.cancel(cancelled);

    QSignalSpy changed(&queue, &TransferQueue::itemsChanged);
    queue.clearFinished();
    QCOMPARE(changed.count(), 1);
    QCOMPARE(queue.items().size(), std::size_t(2));
    QCOMPARE(queue.items()[0].id, running);
    QCOMPARE(queue.items()[1].id, waiting);
    queue.clearFinished();
    QCOMPARE(changed.count(), 1); // nothing to clear, nothing published

    gate->open = true;
    QTRY_VERIFY_WITH_TIMEOUT(!queue.hasWork(), 5000);
}

void TransferQueueTest::logLinesFollowTheJob()
{
    TransferQueue queue(nullptr, 10);
    const std::size_t logStart = logSize();
    queue.enqueue("File operation", [](OperationControl &) {});
    QTRY_VERIFY_WITH_TIMEOUT(!queue.hasWork(), 5000);
    QCOMPARE(logLinesSince(logStart),
             (QStringList{"QUEUE ADDED title=File operation", "QUEUE START title=File operation",
                          "QUEUE COMPLETE title=File operation"}));
}

void TransferQueueTest::destroyingTheQueueStopsTheRunningJob()
{
    auto queue = std::make_unique<TransferQueue>(nullptr, 10);
    auto gate = std::make_shared<Gate>();
    auto stopped = std::make_shared<std::atomic<bool>>(false);
    queue->enqueue("Long", [gate, stopped](OperationControl &control) {
        try {
            gate->pass(control);
        } catch (const CancellationError &) {
            *stopped = true;
            throw;
        }
    });
    QTRY_VERIFY_WITH_TIMEOUT(gate->entered.load(), 5000);
    queue.reset();
    QTRY_VERIFY_WITH_TIMEOUT(stopped->load(), 5000);
    // Give the late outcome a chance to be delivered to the dead queue (it must not be).
    QTest::qWait(50);
}

void TransferQueueTest::realTransferReportsItsBytes()
{
    test::TestTree tree;
    tree.file("src/a.bin", std::string(300'000, 'a'));
    tree.file("src/b.bin", std::string(200'000, 'b'));
    const auto destination = tree.folder("dst");

    TransferQueue queue(nullptr, 10);
    const std::vector<std::filesystem::path> sources{tree / "src/a.bin", tree / "src/b.bin"};
    const QUuid id = queue.enqueue("Copy 2 → dst", [sources, destination](OperationControl &control) {
        FileOperations().transfer(sources, destination, false, ConflictPolicy::stop, control, true);
    });
    QTRY_VERIFY_WITH_TIMEOUT(!queue.hasWork(), 10000);
    QCOMPARE(stateOf(queue, id), QStringLiteral("Complete"));
    QCOMPARE(queue.bytes(), std::int64_t(500'000));
    QCOMPARE(queue.total(), std::int64_t(500'000));
    QCOMPARE(queue.detail(), QStringLiteral("Complete"));
    QCOMPARE(test::TestTree::read(destination / "b.bin"), std::string(200'000, 'b'));
}

QTEST_GUILESS_MAIN(TransferQueueTest)
#include "tst_transferqueue.moc"
