#include "windowfixture.h"

#include "services/transferqueue.h"
#include "tools/queueview.h"

#include <QListView>
#include <QPushButton>
#include <atomic>
#include <thread>

using namespace quillorn;
using namespace quillorn::test;
using namespace std::chrono_literals;

namespace {

// Holds a job until opened or cancelled; shared by pointer so a failed test leaves no job reading its stack.
struct Gate {
    std::atomic<bool> open{false}, entered{false};
    void pass(OperationControl &control)
    {
        for (entered = true; !open; std::this_thread::sleep_for(2ms))
            control.check();
    }
};

} // namespace

// The queue panel of the real main window, used with the mouse and the keyboard.
class QueuePanelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_f.setUp();
        m_gate = std::make_shared<Gate>();
        TransferQueue &queue = this->queue();
        queue.enqueue("Running", [gate = m_gate](OperationControl &control) { gate->pass(control); });
        for (const char *title : {"A", "B", "C"})
            queue.enqueue(title, [](OperationControl &) {});
        QTRY_VERIFY(m_gate->entered);
        QTRY_VERIFY(panel()->isVisible());
    }
    void cleanup()
    {
        m_gate->open = true;
        m_f.tearDown();
    }

    void rowButtonsPauseResumeReorderAndCancel()
    {
        QCOMPARE(buttons(0), (QStringList{"Pause", "Cancel"}));
        QCOMPARE(buttons(1), (QStringList{"\u2193", "Cancel"})); // the first waiting job cannot go up
        QCOMPARE(buttons(2), (QStringList{"\u2191", "\u2193", "Cancel"}));
        QCOMPARE(buttons(3), (QStringList{"\u2191", "Cancel"}));
        button(0, "rowPause")->click();
        QCOMPARE(states(), (QStringList{"Paused", "Waiting", "Waiting", "Waiting"}));
        QCOMPARE(buttons(0), (QStringList{"Resume", "Cancel"}));
        // A paused job is work: quitting is refused.
        QStringList alerts;
        CommanderAppDelegate::queue = &queue();
        QCOMPARE(CommanderAppDelegate::applicationShouldTerminate(
                     [&](const AlertRequest &alert) { alerts << alert.message; }),
                 CommanderAppDelegate::TerminateReply::terminateCancel);
        QCOMPARE(alerts, QStringList{"File operations are still queued or running"});
        button(3, "rowUp")->click();
        button(1, "rowDown")->click();
        QCOMPARE(titles(), (QStringList{"Running", "C", "A", "B"}));
        button(0, "rowResume")->click();
        QCOMPARE(states().front(), QStringLiteral("Running"));
        button(2, "rowCancel")->click();
        QCOMPARE(states(), (QStringList{"Running", "Waiting", "Cancelled", "Waiting"}));
        m_gate->open = true;
        QTRY_COMPARE(states(), (QStringList{"Complete", "Complete", "Cancelled", "Complete"}));
        QCOMPARE(buttons(0), QStringList());
    }

    void tabGoesRoundThePanelAndEscapeGivesTheKeyboardBack()
    {
        QueueView *view = panel();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_J, Qt::ControlModifier);
        QCOMPARE(QApplication::focusWidget(), view->list());
        const QList<QWidget *> stops = view->tabOrder();
        // Header, list, then each row's buttons in row order: 3 + 1 + 2 + 2 + 3 + 2.
        QCOMPARE(stops.size(), 13);
        QList<QWidget *> reached{QApplication::focusWidget()};
        for (int step = 0; step < stops.size(); ++step) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            reached << QApplication::focusWidget();
        }
        QCOMPARE(reached.mid(0, stops.size()), stops.mid(3) + stops.mid(0, 3));
        QCOMPARE(reached.last(), view->list()); // round and back
        QCOMPARE(qobject_cast<QPushButton *>(stops[4])->text(), QStringLiteral("Pause"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab);
        QCOMPARE(QApplication::focusWidget(), stops[2]);
        // Space presses the button that has the keyboard.
        QCOMPARE(QApplication::focusWidget()->objectName(), QStringLiteral("clearFinishedButton"));
        for (int step = 0; step < 2; ++step)
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        QCOMPARE(states().front(), QStringLiteral("Paused"));
        const bool leftActive = m_f.view->model().activeLeft();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QCOMPARE(QApplication::focusWidget(), m_f.view->centralWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab); // the panes' Tab again
        QCOMPARE(m_f.view->model().activeLeft(), !leftActive);
    }

    void altUpAndDownMoveTheCurrentWaitingJob()
    {
        QListView *list = panel()->list();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_J, Qt::ControlModifier);
        const auto cursor = m_f.left().cursor();
        QTest::keyClick(list, Qt::Key_Down); // the list's own cursor, not the pane's
        QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(list->currentIndex().row(), 2);
        QCOMPARE(m_f.left().cursor(), cursor);
        QTest::keyClick(list, Qt::Key_Up, Qt::AltModifier);
        QCOMPARE(titles(), (QStringList{"Running", "B", "A", "C"}));
        QCOMPARE(list->currentIndex().row(), 1);            // the moved job keeps the cursor
        QTest::keyClick(list, Qt::Key_Up, Qt::AltModifier); // never ahead of the running job
        QCOMPARE(titles(), (QStringList{"Running", "B", "A", "C"}));
        QTest::keyClick(list, Qt::Key_Down, Qt::AltModifier);
        QTest::keyClick(list, Qt::Key_Down, Qt::AltModifier);
        QCOMPARE(titles(), (QStringList{"Running", "A", "C", "B"}));
        QCOMPARE(list->currentIndex().row(), 3);
        list->setCurrentIndex(list->model()->index(0, 0));
        QTest::keyClick(list, Qt::Key_Down, Qt::AltModifier); // the running job stays first
        QCOMPARE(titles(), (QStringList{"Running", "A", "C", "B"}));
    }

private:
    TransferQueue &queue() const { return m_f.view->model().queue(); }
    QueueView *panel() const { return m_f.view->queueView(); }
    QWidget *row(int index) const
    {
        QListView *list = panel()->list();
        return list->indexWidget(list->model()->index(index, 0));
    }
    QPushButton *button(int index, const char *name) const
    {
        return row(index)->findChild<QPushButton *>(name);
    }
    // The texts of a row's buttons on screen, left to right.
    QStringList buttons(int index) const
    {
        QStringList texts;
        for (QPushButton *shown : row(index)->findChildren<QPushButton *>())
            if (!shown->isHidden() && shown->isEnabled())
                texts << shown->text();
        return texts;
    }
    QStringList column(bool state) const
    {
        QStringList texts;
        for (const QueueItem &item : queue().items())
            texts << (state ? item.stateText() : item.title);
        return texts;
    }
    QStringList states() const { return column(true); }
    QStringList titles() const { return column(false); }

    mutable WindowFixture m_f;
    std::shared_ptr<Gate> m_gate;
};

QTEST_MAIN(QueuePanelTest)
#include "tst_queuepanel.moc"
