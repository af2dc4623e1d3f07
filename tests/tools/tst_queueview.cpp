#include "operations/commandererror.h"
#include "platform/desktop/timeleft.h"
#include "services/transferqueue.h"
#include "testtree.h"
#include "tools/queueview.h"

#include <QLabel>
#include <QListView>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <thread>

using namespace quillorn;
using namespace std::chrono_literals;

class QueueViewTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString(m_home.root().string()));
        QLocale::setDefault(QLocale::c());
    }

    void progressLine()
    {
        using Row = std::tuple<qint64, qint64, double, std::optional<double>, QString>;
        for (auto [bytes, total, speed, left, expected] :
             {Row{0, 0, 0, {}, "0 bytes of 0 bytes|0.0% transferred|100.0% left|0 bytes/s"},
              Row{4100000, 12300000, 1999.9, {}, "4.1 MB of 12.3 MB|33.3% transferred|66.7% left|2.0 kB/s"},
              Row{3000, 1000, 10, {}, "3.0 kB of 1.0 kB|100.0% transferred|0.0% left|10 bytes/s"},
              Row{4100000, 12300000, 1999.9, 119.5,
                  "4.1 MB of 12.3 MB|33.3% transferred|66.7% left|2.0 kB/s|About 2 min left"}})
            QCOMPARE(QueueView::progressLine(bytes, total, speed, left), expected.replace('|', "  \u2022  "));
        // The time left joins the line only for a known total.
        QVERIFY(!QueueView::progressLine(100, 0, 10, 5).contains("About"));
    }

    void timeLeftInTheShortDurationStyle()
    {
        using Row = std::pair<double, const char *>;
        for (auto [seconds, expected] :
             {Row{0, "About 1 sec left"}, Row{39.2, "About 40 sec left"}, Row{89, "About 1 min left"},
              Row{119.5, "About 2 min left"}, Row{3569, "About 59 min left"}, Row{3590, "About 1 hr left"},
              Row{3900, "About 1 hr, 5 min left"}, Row{1e12, "About 277777 hr, 47 min left"}})
            QCOMPARE(formattedTimeLeft(seconds), QString::fromUtf8(expected));
    }

    void rowsShowEachJobsStateProgressAndCancel()
    {
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        view.show();
        queue.enqueue("Done", [](OperationControl &) {});
        queue.enqueue("Refused",
                      [](OperationControl &) { throw CommanderError("An item named ‘a’ already exists."); });
        queue.enqueue("Copy 2 → Inbox", [](OperationControl &control) {
            control.total(100);
            control.add(40);
            control.detail("Copying a.txt");
            for (;; std::this_thread::sleep_for(2ms)) // until cancelled
                control.check();
        });
        queue.enqueue("Next", [](OperationControl &) {});
        auto *list = view.list();
        const auto row = [&](int index) { return list->indexWidget(list->model()->index(index, 0)); };
        const auto state = [&](int index) { return row(index)->findChild<QLabel *>("rowState"); };
        auto *line = view.findChild<QLabel *>("progressLine");
        QTRY_COMPARE(view.findChild<QLabel *>("detailLine")->text(), QStringLiteral("Copying a.txt"));
        QVERIFY(line->text().contains("40.0% transferred"));
        QCOMPARE(view.findChild<QProgressBar *>()->value(), 400);
        QCOMPARE(state(1)->text(), QStringLiteral("Failed: An item named ‘a’ already exists."));
        QCOMPARE(state(1)->palette().color(QPalette::WindowText), QueueView::failureColour);
        QVERIFY(state(0)->palette().color(QPalette::WindowText) != QueueView::failureColour);
        view.findChild<QToolButton *>("operationsToggle")->click(); // collapsed: the progress stays
        QVERIFY(!list->isVisible() && line->isVisible());

        QCOMPARE(state(3)->text(), QStringLiteral("Waiting"));
        row(3)->findChild<QPushButton *>("rowCancel")->click();
        QCOMPARE(state(3)->text(), QStringLiteral("Cancelled"));
        QVERIFY(row(3)->findChild<QPushButton *>("rowCancel")->isHidden());
        row(2)->findChild<QPushButton *>("rowCancel")->click();
        QTRY_COMPARE(state(2)->text(), QStringLiteral("Cancelled — previously completed items remain"));
        QVERIFY(!line->isVisible());
        std::filesystem::path revealed;
        view.setRevealLog([&](const std::filesystem::path &file) { revealed = file; });
        view.findChild<QPushButton *>("showLogButton")->click();
        QCOMPARE(revealed, m_home.root() / "Quillorn/Logs/Quillorn.log");
        view.findChild<QPushButton *>("clearFinishedButton")->click();
        QCOMPARE(list->model()->rowCount(), 0);
        QVERIFY(!view.isVisible()); // an empty queue shows nothing
    }

private:
    test::TestTree m_home;
};

QTEST_MAIN(QueueViewTest)
#include "tst_queueview.moc"
