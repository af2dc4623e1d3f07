#include "app/commanderappdelegate.h"
#include "app/quitguard.h"
#include "services/transferqueue.h"
#include "testtree.h"

#include <QAbstractButton>
#include <QMainWindow>
#include <QMessageBox>
#include <QTest>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

using namespace quillorn;
using namespace std::chrono_literals;

namespace {

// A job that runs until the test lets it finish.
struct Gate {
    std::atomic<bool> open{false};
    std::atomic<bool> entered{false};
    QueueItem::Work work()
    {
        return [this](OperationControl &control) {
            entered = true;
            while (!open) {
                control.check();
                std::this_thread::sleep_for(2ms);
            }
        };
    }
};

QStringList buttonTexts(QMessageBox *box)
{
    QStringList texts;
    for (QAbstractButton *button : box->buttons())
        texts << button->text().remove('&');
    return texts;
}

} // namespace

class QuitGuardTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qputenv("XDG_DATA_HOME", QByteArray::fromStdString(m_home.root().string())); }

    void init()
    {
        CommanderAppDelegate::queue = nullptr;
        CommanderAppDelegate::unsavedEditor = false;
        m_window = std::make_unique<QMainWindow>();
        m_guard = new QuitGuard(m_window.get());
        m_window->show();
    }

    void cleanup()
    {
        m_gate.open = true;
        m_window.reset();
        m_queue.reset();
        m_gate.open = false;
        m_gate.entered = false;
    }

    void withoutARegisteredQueueTheWindowCloses()
    {
        QVERIFY(m_window->close());
        QVERIFY(!m_guard->alert());
    }

    void aRunningJobKeepsTheWindowOpenUntilItEnds()
    {
        m_queue = std::make_unique<TransferQueue>(nullptr, 10);
        CommanderAppDelegate::queue = m_queue.get();
        m_queue->enqueue(QStringLiteral("Copy 1 → Photos"), m_gate.work());
        QTRY_VERIFY(m_gate.entered);

        QVERIFY(!m_window->close());
        QVERIFY(m_window->isVisible());
        QMessageBox *alert = m_guard->alert();
        QVERIFY(alert);
        QVERIFY(alert->isVisible());
        QCOMPARE(alert->text(), QStringLiteral("File operations are still queued or running"));
        QCOMPARE(alert->informativeText(),
                 QStringLiteral(
                     "Finish or cancel operations before quitting. Completed items will remain in place."));
        QCOMPARE(buttonTexts(alert), QStringList{"Keep running"});
        QVERIFY(m_queue->running()); // the guard neither cancels nor waits
        alert->buttons().first()->click();
        QTRY_VERIFY(!m_guard->alert());

        m_gate.open = true;
        QTRY_VERIFY(!m_queue->hasWork());
        QVERIFY(m_window->close());
    }

    void unsavedEditsWinOverTheQueue()
    {
        m_queue = std::make_unique<TransferQueue>(nullptr, 10);
        CommanderAppDelegate::queue = m_queue.get();
        m_queue->enqueue(QStringLiteral("Copy"), m_gate.work());
        CommanderAppDelegate::unsavedEditor = true;

        QVERIFY(!m_window->close());
        QMessageBox *alert = m_guard->alert();
        QVERIFY(alert);
        QCOMPARE(alert->text(), QStringLiteral("The editor has unsaved changes"));
        QCOMPARE(alert->informativeText(), QStringLiteral("Save or discard your edits before quitting."));
        QCOMPARE(alert->buttons().size(), 1);

        CommanderAppDelegate::unsavedEditor = false;
        QVERIFY(!m_window->close());
        QCOMPARE(m_guard->alert()->text(), QStringLiteral("File operations are still queued or running"));
    }

    void aQueueThatIsGoneHasNoWork()
    {
        m_queue = std::make_unique<TransferQueue>(nullptr, 10);
        CommanderAppDelegate::queue = m_queue.get();
        m_queue->enqueue(QStringLiteral("Copy"), m_gate.work());
        QTRY_VERIFY(m_gate.entered);
        m_gate.open = true;
        m_queue.reset();
        QVERIFY(CommanderAppDelegate::queue.isNull());
        QVERIFY(m_window->close());
    }

    void theDecisionWithoutAWindow()
    {
        using Reply = CommanderAppDelegate::TerminateReply;
        QStringList shown;
        auto show = [&](const AlertRequest &alert) { shown << alert.message; };
        QCOMPARE(CommanderAppDelegate::applicationShouldTerminate(show), Reply::terminateNow);
        CommanderAppDelegate::unsavedEditor = true;
        QCOMPARE(CommanderAppDelegate::applicationShouldTerminate(show), Reply::terminateCancel);
        QCOMPARE(shown, QStringList{"The editor has unsaved changes"});
    }

private:
    test::TestTree m_home;
    Gate m_gate;
    std::unique_ptr<TransferQueue> m_queue;
    std::unique_ptr<QMainWindow> m_window;
    QuitGuard *m_guard = nullptr;
};

QTEST_MAIN(QuitGuardTest)
#include "tst_quitguard.moc"
