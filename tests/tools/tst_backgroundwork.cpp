#include "operations/commandererror.h"
#include "tools/backgroundwork.h"

#include <QTest>
#include <QThread>

#include <future>
#include <memory>

using namespace quillorn;

// Work off the interface thread whose outcome comes back to a receiver on it,
// and never to a receiver that is gone.
class BackgroundWorkTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void resultAndErrorArriveOnTheReceiversThread()
    {
        QObject receiver;
        QThread *worker = nullptr;
        QThread *delivered = nullptr;
        int result = 0;
        runInBackground(
            &receiver,
            [&worker] {
                worker = QThread::currentThread();
                return 42;
            },
            [&](int value) {
                delivered = QThread::currentThread();
                result = value;
            },
            [](const std::exception_ptr &) { QFAIL("no error expected"); });
        QTRY_COMPARE(result, 42);
        QCOMPARE(delivered, QThread::currentThread());
        QVERIFY(worker && worker != QThread::currentThread());

        QString failure;
        runInBackground(
            &receiver, []() -> int { throw CommanderError("Cannot search this folder."); },
            [](int) { QFAIL("no result expected"); },
            [&](const std::exception_ptr &error) {
                try {
                    std::rethrow_exception(error);
                } catch (const CommanderError &commander) {
                    failure = QString::fromStdString(commander.errorDescription());
                }
            });
        QTRY_COMPARE(failure, QStringLiteral("Cannot search this folder."));
    }

    void nothingArrivesOnceTheReceiverIsGone()
    {
        auto receiver = std::make_unique<QObject>();
        std::promise<void> release;
        std::promise<void> finished;
        auto delivered = std::make_shared<bool>(false);
        runInBackground(
            receiver.get(),
            [wait = release.get_future().share(), &finished] {
                wait.wait();
                finished.set_value();
                return 1;
            },
            [delivered](int) { *delivered = true; },
            [delivered](const std::exception_ptr &) { *delivered = true; });
        receiver.reset();
        release.set_value();
        finished.get_future().wait();
        QTest::qWait(50);
        QVERIFY(!*delivered);
    }
};

QTEST_GUILESS_MAIN(BackgroundWorkTest)
#include "tst_backgroundwork.moc"
