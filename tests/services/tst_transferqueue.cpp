#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "services/transferqueue.h"
#include "testtree.h"

#include <QSignalSpy>
#include <QTest>
#include <atomic>
#include <thread>

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
        if (line.contains(" title=" + title))
            lines << line.section(' ', 1);
    return lines;
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
        queue.setCompleted([&] { ++completions; });
        const auto states = [&queue] {
            QStringList states;
            for (const QueueItem &item : queue.items())
                states << item.stateText();
            return states;
        };
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

private:
    test::TestTree m_data;
};

QTEST_GUILESS_MAIN(TransferQueueTest)
#include "tst_transferqueue.moc"
