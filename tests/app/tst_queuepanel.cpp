#include "windowfixture.h"

#include "app/functionkeybar.h"

#include "services/transferqueue.h"
#include "tools/queueview.h"

#include <QHeaderView>
#include <QListView>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
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

// The engine of the window's queue with a real copy that moves one byte at a
// time while `held`: it stays running until released, and pausing and
// cancelling reach it between two bytes.
JobRunner slowRunner(std::shared_ptr<std::atomic<bool>> held)
{
    FileOperations::FileManager manager = FileOperations::FileManager::posix();
    manager.copyChunk = [held, copy = manager.copyChunk](int input, int output, std::size_t limit,
                                                         const fs::path &source, const fs::path &target) {
        if (*held) {
            std::this_thread::sleep_for(2ms);
            limit = std::min<std::size_t>(limit, 1);
        }
        return copy(input, output, limit, source, target);
    };
    return JobRunner(FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                                    FileOperations::defaultVolumeIsLocal(), manager));
}

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

    // Space and Return press the button that has the keyboard, and it keeps
    // the keyboard: Pause becomes Resume in place and back, so a second press
    // acts on the same job instead of cancelling it.
    void aPressedButtonKeepsTheKeyboard()
    {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_J, Qt::ControlModifier);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QWidget *pause = QApplication::focusWidget();
        QCOMPARE(pause, button(0, "rowPause"));
        for (Qt::Key key : {Qt::Key_Space, Qt::Key_Space, Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
            const bool paused = states().front() == "Paused";
            QTest::keyClick(QApplication::focusWidget(), key);
            QCOMPARE(states().front(), paused ? QStringLiteral("Running") : QStringLiteral("Paused"));
            QCOMPARE(QApplication::focusWidget(), pause);
            QCOMPARE(qobject_cast<QPushButton *>(pause)->text(), paused ? "Pause" : "Resume");
        }
        // A held key repeats without pressing again.
        for (QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease}) {
            QKeyEvent repeat(type, Qt::Key_Space, Qt::NoModifier, QStringLiteral(" "), true);
            QApplication::sendEvent(pause, &repeat);
        }
        QCOMPARE(states(), (QStringList{"Paused", "Waiting", "Waiting", "Waiting"}));
        QCOMPARE(QApplication::focusWidget(), pause);
    }

    // Cancelling the paused copy leaves the keyboard on its row in the list,
    // not on the Cancel of the real copy that starts next: Space there does not
    // touch that copy.
    void cancellingAPausedJobLeavesTheNextOneAlone()
    {
        auto held = std::make_shared<std::atomic<bool>>(true);
        queue().setRunner(slowRunner(held));
        m_f.tree->file("Left/big.bin", std::string(200'000, 'q'));
        const QUuid copy =
            queue().enqueue("Copy 1 → Right", TransferJob{{*m_f.tree / "Left/big.bin"}, *m_f.tree / "Right"});
        QVERIFY(queue().move(copy, 1));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_J, Qt::ControlModifier);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        QCOMPARE(states().front(), QStringLiteral("Paused"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), button(0, "rowCancel"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        QTRY_COMPARE(states().mid(0, 2),
                     (QStringList{"Cancelled — previously completed items remain", "Running"}));
        QListView *list = panel()->list();
        QCOMPARE(QApplication::focusWidget(), list);
        QCOMPARE(list->currentIndex().row(), 0);
        QVERIFY(button(1, "rowCancel")->isVisible());
        for (Qt::Key key : {Qt::Key_Space, Qt::Key_Return})
            QTest::keyClick(QApplication::focusWidget(), key);
        QCOMPARE(states()[1], QStringLiteral("Running"));
        QCOMPARE(m_f.calls, QStringList()); // Return opened nothing in the panes
        *held = false;
        QTRY_COMPARE(states().mid(1), (QStringList{"Complete", "Complete", "Complete", "Complete"}));
        QCOMPARE(TestTree::read(*m_f.tree / "Right/big.bin"), std::string(200'000, 'q'));
    }

    // A cancelled waiting job loses its buttons; the keyboard stays on its row
    // and Tab goes on round the panel instead of switching panes.
    void cancellingAWaitingJobKeepsTheKeyboardInThePanel()
    {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_J, Qt::ControlModifier);
        for (int step = 0; step < 5 && QApplication::focusWidget() != button(1, "rowCancel"); ++step)
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), button(1, "rowCancel"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        QCOMPARE(states(), (QStringList{"Running", "Cancelled", "Waiting", "Waiting"}));
        QListView *list = panel()->list();
        QCOMPARE(QApplication::focusWidget(), list);
        QCOMPARE(list->currentIndex().row(), 1);
        const bool leftActive = m_f.view->model().activeLeft();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(m_f.view->model().activeLeft(), leftActive);
        QVERIFY(panel()->isAncestorOf(QApplication::focusWidget()));
        // Up and down the list's own arrows move its row; the waiting jobs are untouched.
        QTest::keyClick(list, Qt::Key_Space);
        QCOMPARE(states(), (QStringList{"Running", "Cancelled", "Waiting", "Waiting"}));
    }

    // Return on "Show Log" and "Clear finished" presses them; nothing reaches
    // the pane behind, whose cursor is on a file Return would open. Clearing
    // the last jobs hides the panel and gives the keyboard back to the panes.
    void returnPressesHeaderButtonsAndNeverOpensTheCursorItem()
    {
        std::filesystem::path revealed;
        panel()->setRevealLog([&](const std::filesystem::path &file) { revealed = file; });
        m_f.left().setCursor(*m_f.tree / "Left/b.txt");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_J, Qt::ControlModifier);
        for (int step = 0; step < 2; ++step)
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab);
        QCOMPARE(QApplication::focusWidget()->objectName(), QStringLiteral("showLogButton"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        QCOMPARE(revealed.filename(), fs::path("Quillorn.log"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget()->objectName(), QStringLiteral("clearFinishedButton"));
        m_gate->open = true;
        QTRY_COMPARE(states(), (QStringList{"Complete", "Complete", "Complete", "Complete"}));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        QVERIFY(queue().items().empty());
        QTRY_VERIFY(!panel()->isVisible());
        QCOMPARE(QApplication::focusWidget(), m_f.view->centralWidget());
        QCOMPARE(m_f.calls, QStringList());
        QCOMPARE(m_f.left().cursor(), std::optional(*m_f.tree / "Left/b.txt"));
    }

    // At the smallest window size, with a handful of finished jobs, the file
    // lists keep five rows and the queue's list scrolls.
    void smallestWindowKeepsFiveRowsInTheFileLists()
    {
        m_gate->open = true;
        for (const char *title : {"D", "E", "F", "G"})
            queue().enqueue(title, [](OperationControl &) {});
        QTRY_VERIFY(!queue().hasWork());
        // At the usual size the panel shows four jobs without scrolling itself.
        QListView *jobs = panel()->list();
        auto *scroll = panel()->findChild<QScrollArea *>("queueScroll");
        const int rowHeight = jobs->visualRect(jobs->model()->index(0, 0)).height();
        QTRY_COMPARE(jobs->height(), 4 * rowHeight + 2);
        QCOMPARE(scroll->verticalScrollBar()->maximum(), 0);
        m_f.view->resize(m_f.view->minimumSize());
        QCOMPARE(m_f.view->minimumSize(), QSize(900, 480));
        QTRY_COMPARE(m_f.view->size(), QSize(900, 480));
        for (FilePane *pane : {m_f.view->leftPane(), m_f.view->rightPane()}) {
            QTableView *rows = pane->listView();
            QTRY_VERIFY(rows->viewport()->height() >= 5 * rows->verticalHeader()->defaultSectionSize());
        }
        QVERIFY(panel()->height() > 0);
        QVERIFY(scroll->verticalScrollBar()->maximum() > 0);
        // Everything under the panes is on screen.
        QWidget *keys = m_f.view->functionKeyBar();
        QVERIFY(keys->mapTo(m_f.view.get(), QPoint(0, keys->height())).y() <= m_f.view->height());
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
