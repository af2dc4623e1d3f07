#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "services/transferqueue.h"
#include "testtree.h"
#include "tools/queueview.h"

#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include <atomic>
#include <chrono>
#include <thread>

using namespace quillorn;
using namespace std::chrono_literals;

namespace {

// Holds a job in "Running" until the test opens it or cancels the job.
struct Gate {
    std::atomic<bool> open{false};
    std::atomic<bool> entered{false};

    QueueItem::Work work(std::int64_t expected = 0, std::int64_t done = 0, std::string step = {})
    {
        return [this, expected, done, step](OperationControl &control) {
            control.total(expected);
            control.add(done);
            if (!step.empty())
                control.detail(step);
            entered = true;
            while (!open) {
                control.check();
                std::this_thread::sleep_for(2ms);
            }
        };
    }
};

QList<QWidget *> rows(QueueView &view)
{
    return view.findChildren<QWidget *>(QStringLiteral("queueRow"));
}

// Whether the widget, as drawn, shows the colour anywhere.
bool drawsIn(QWidget *widget, const QColor &colour)
{
    const QImage image = widget->grab().toImage();
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixelColor(x, y) == colour)
                return true;
    return false;
}

QLabel *stateLabel(QWidget *row)
{
    return row->findChild<QLabel *>(QStringLiteral("rowState"));
}

} // namespace

class QueueViewTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString(m_home.root().string()));
        QLocale::setDefault(QLocale::c());
    }

    void progressLine_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<double>("speed");
        QTest::addColumn<QString>("expected");
        const QString dot = QStringLiteral("  \u2022  ");
        QTest::newRow("total 0: nothing measured yet")
            << qint64(0) << qint64(0) << 0.0
            << QStringLiteral("0 bytes of 0 bytes") + dot + "0.0% transferred" + dot + "100.0% left" + dot +
                   "0 bytes/s";
        QTest::newRow("half way, speed truncated to whole bytes")
            << qint64(6'150'000) << qint64(12'300'000) << 1999.9
            << QStringLiteral("6.2 MB of 12.3 MB") + dot + "50.0% transferred" + dot + "50.0% left" + dot +
                   "2.0 kB/s";
        QTest::newRow("more done than expected is clamped")
            << qint64(3000) << qint64(1000) << 10.0
            << QStringLiteral("3.0 kB of 1.0 kB") + dot + "100.0% transferred" + dot + "0.0% left" + dot +
                   "10 bytes/s";
        QTest::newRow("one decimal") << qint64(1) << qint64(3) << 0.0
                                     << QStringLiteral("1 bytes of 3 bytes") + dot + "33.3% transferred" +
                                            dot + "66.7% left" + dot + "0 bytes/s";
    }

    void progressLine()
    {
        QFETCH(qint64, bytes);
        QFETCH(qint64, total);
        QFETCH(double, speed);
        QFETCH(QString, expected);
        QCOMPARE(QueueView::progressLine(bytes, total, speed), expected);
    }

    void emptyQueueShowsNothing()
    {
        TransferQueue queue(nullptr, 10);
        QWidget window;
        auto *view = new QueueView(queue, &window);
        window.show();
        QVERIFY(!view->isVisible());
        queue.enqueue(QStringLiteral("x"), [](OperationControl &) {});
        QVERIFY(view->isVisible());
        QTRY_VERIFY(!queue.running());
    }

    void runningJobShowsProgressBlockWithDetail()
    {
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        view.show();
        Gate gate;
        queue.enqueue(QStringLiteral("Copy 1 → Photos"), gate.work(0, 0, "Copying a.txt"));
        QVERIFY(view.isVisible());
        auto *line = view.findChild<QLabel *>(QStringLiteral("progressLine"));
        auto *detail = view.findChild<QLabel *>(QStringLiteral("detailLine"));
        QVERIFY(line->isVisible());
        QTRY_COMPARE(detail->text(), QStringLiteral("Copying a.txt"));
        QVERIFY(line->text().contains(QStringLiteral("0.0% transferred")));
        QVERIFY(line->text().contains(QStringLiteral("100.0% left")));
        gate.open = true;
        QTRY_VERIFY(!queue.running());
        QVERIFY(!line->isVisible());
    }

    void failedRowIsOrangeWithoutCancelAndClearFinishedRemovesIt()
    {
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        view.show();
        view.setColours(QColor(0x1F, 0x37, 0x5E), QColor(0x2D, 0x43, 0x65), QColor(0x5B, 0xCF, 0xFA));
        queue.enqueue(QStringLiteral("File operation"),
                      [](OperationControl &) { throw CommanderError("An item named ‘a’ already exists."); });
        QTRY_VERIFY(!queue.running());
        QCOMPARE(rows(view).size(), 1);
        QLabel *state = stateLabel(rows(view).first());
        QCOMPARE(state->text(), QStringLiteral("Failed: An item named ‘a’ already exists."));
        QVERIFY(drawsIn(state, QueueView::failureColour));
        QVERIFY(!rows(view).first()->findChild<QPushButton *>(QStringLiteral("rowCancel")));

        view.findChild<QPushButton *>(QStringLiteral("clearFinishedButton"))->click();
        QVERIFY(queue.items().empty());
        QVERIFY(rows(view).isEmpty());
        QVERIFY(!view.isVisible());
    }

    void completedRowIsNotOrange()
    {
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        view.show();
        queue.enqueue(QStringLiteral("File operation"), [](OperationControl &) {});
        QTRY_VERIFY(!queue.running());
        QLabel *state = stateLabel(rows(view).first());
        QCOMPARE(state->text(), QStringLiteral("Complete"));
        QVERIFY(!drawsIn(state, QueueView::failureColour));
    }

    void cancelButtonsOnWaitingAndRunningRows()
    {
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        view.show();
        Gate gate;
        queue.enqueue(QStringLiteral("first"), gate.work());
        queue.enqueue(QStringLiteral("second"), [](OperationControl &) {});
        QTRY_VERIFY(gate.entered);
        QCOMPARE(rows(view).size(), 2);
        QCOMPARE(stateLabel(rows(view)[1])->text(), QStringLiteral("Waiting"));

        rows(view)[1]->findChild<QPushButton *>(QStringLiteral("rowCancel"))->click();
        QCOMPARE(stateLabel(rows(view)[1])->text(), QStringLiteral("Cancelled"));
        QVERIFY(!rows(view)[1]->findChild<QPushButton *>(QStringLiteral("rowCancel")));

        rows(view)[0]->findChild<QPushButton *>(QStringLiteral("rowCancel"))->click();
        QTRY_COMPARE(stateLabel(rows(view)[0])->text(),
                     QStringLiteral("Cancelled — previously completed items remain"));
    }

    void collapsingHidesRowsButKeepsHeaderAndProgress()
    {
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        view.show();
        Gate gate;
        queue.enqueue(QStringLiteral("Copy 2 → Inbox"), gate.work(100, 40));
        QTRY_VERIFY(gate.entered);
        auto *toggle = view.findChild<QToolButton *>(QStringLiteral("operationsToggle"));
        auto *list = view.findChild<QScrollArea *>(QStringLiteral("queueRows"));
        auto *line = view.findChild<QLabel *>(QStringLiteral("progressLine"));
        QCOMPARE(toggle->arrowType(), Qt::DownArrow);
        QVERIFY(list->isVisible());

        toggle->click();
        QVERIFY(!view.expanded());
        QCOMPARE(toggle->arrowType(), Qt::RightArrow);
        QVERIFY(!list->isVisible());
        QVERIFY(toggle->isVisible());
        QVERIFY(line->isVisible());
        QTRY_VERIFY(line->text().contains(QStringLiteral("40.0% transferred")));
        QCOMPARE(view.findChild<QProgressBar *>()->value(), 400);

        toggle->click();
        QVERIFY(list->isVisible());
        gate.open = true;
        QTRY_VERIFY(!queue.running());
    }

    void showLogRevealsTheCurrentLogFile()
    {
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        std::filesystem::path revealed;
        view.setRevealLog([&](const std::filesystem::path &file) { revealed = file; });
        queue.enqueue(QStringLiteral("x"), [](OperationControl &) {});
        view.show();
        view.findChild<QPushButton *>(QStringLiteral("showLogButton"))->click();
        QCOMPARE(revealed, m_home.root() / "Quillorn/Logs/Quillorn.log");
        QTRY_VERIFY(!queue.running());
    }

private:
    test::TestTree m_home;
};

QTEST_MAIN(QueueViewTest)
#include "tst_queueview.moc"
