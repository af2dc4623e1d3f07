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
#include <atomic>
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

    void itemsLine()
    {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        QCOMPARE(QueueView::itemsLine(12345, 100000),
                 QStringLiteral("12,345 of 100,000 items done  •  87,655 left"));
        QLocale::setDefault(QLocale::c());
        QCOMPARE(QueueView::itemsLine(7, 5), QStringLiteral("7 of 5 items done  •  0 left"));
    }

    // Two copies into one folder differ by what they carry; a copy whose items
    // were all skipped says so beside "Complete".
    void rowsNameWhatTheyCarryAndWhatWasSkipped()
    {
        test::TestTree tree;
        const std::filesystem::path report = tree.file("src/report.pdf", "new");
        std::vector<std::filesystem::path> texts;
        for (const char *name : {"src/a.txt", "src/b.txt", "src/c.txt"})
            texts.push_back(tree.file(name, "text"));
        tree.file("R/report.pdf", "old");
        const std::filesystem::path odd = tree.file("src/\xff.txt", "odd");
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        view.show();
        const auto copy = [&](std::vector<std::filesystem::path> sources) {
            queue.enqueue(QStringLiteral("Copy %1 → R").arg(sources.size()),
                          TransferJob{std::move(sources), tree / "R", false, ConflictPolicy::skip});
        };
        copy({report});
        copy(texts);
        copy({texts[0], texts[1]});
        copy({odd, report});
        QTRY_VERIFY(!queue.hasWork());
        auto *list = view.list();
        QStringList carries, states;
        for (int index = 0; index < list->model()->rowCount(); ++index) {
            QWidget *row = list->indexWidget(list->model()->index(index, 0));
            carries << row->findChild<QLabel *>("rowCarries")->text();
            states << row->findChild<QLabel *>("rowState")->text();
        }
        QCOMPARE(carries, (QStringList{"‘report.pdf’", "‘a.txt’ and 2 more", "‘a.txt’ and 1 more",
                                       "‘\uFFFD.txt’ and 1 more"}));
        QCOMPARE(
            states,
            (QStringList{"Complete — Nothing was copied: ‘report.pdf’ already exists in ‘R’ and was skipped.",
                         "Complete",
                         "Complete — Nothing was copied: all 2 items already exist in ‘R’ and were skipped.",
                         "Complete"}));
        QCOMPARE(test::TestTree::read(tree / "R/report.pdf"), "old");
        QCOMPARE(test::TestTree::read(tree / "R/\xff.txt"), "odd"); // the name's bytes as they were
    }

    // Empty files move no bytes: the progress counts items instead of
    // "0 bytes of 0 bytes, 100.0% left".
    void aCopyOfEmptyFilesCountsItems()
    {
        test::TestTree tree;
        for (int index = 0; index < 300; ++index)
            tree.file("src/many/" + std::to_string(index), "");
        tree.folder("R");
        // The eleventh file waits until released, so the count holds still.
        auto calls = std::make_shared<std::atomic<int>>(0);
        auto released = std::make_shared<std::atomic<bool>>(false);
        FileOperations::FileManager manager = FileOperations::FileManager::posix();
        manager.copyChunk = [=, copy = manager.copyChunk](int input, int output, std::size_t limit,
                                                          const std::filesystem::path &source,
                                                          const std::filesystem::path &target) {
            if (++*calls > 10)
                while (!*released)
                    std::this_thread::sleep_for(2ms);
            return copy(input, output, limit, source, target);
        };
        TransferQueue queue(nullptr, 10);
        queue.setRunner(
            JobRunner(FileOperations(FileOperations::defaultTrash(), FileOperations::defaultRemove(),
                                     FileOperations::defaultVolumeIsLocal(), manager)));
        QueueView view(queue);
        view.show();
        queue.enqueue("Copy 1 → R", TransferJob{{tree / "src/many"}, tree / "R"});
        auto *line = view.findChild<QLabel *>("progressLine");
        QTRY_COMPARE(line->text(), QStringLiteral("10 of 301 items done  •  291 left"));
        QCOMPARE(view.findChild<QProgressBar *>()->value(), 10 * 1000 / 301);
        *released = true;
        QTRY_VERIFY(!queue.hasWork());
        QCOMPARE(queue.items().front().stateText(), QStringLiteral("Complete"));
        QCOMPARE(std::distance(std::filesystem::directory_iterator(tree / "R/many"), {}), 300);
    }

    // When the next job starts, the list scrolls to it, past the finished ones.
    void theListFollowsTheRunningJob()
    {
        TransferQueue queue(nullptr, 10);
        QueueView view(queue);
        view.show();
        auto open = std::make_shared<std::atomic<bool>>(false);
        for (int index = 0; index < 8; ++index)
            queue.enqueue(QStringLiteral("Done %1").arg(index), [](OperationControl &) {});
        queue.enqueue("Held", [open](OperationControl &control) {
            for (; !*open; std::this_thread::sleep_for(2ms))
                control.check();
        });
        auto *list = view.list();
        QTRY_VERIFY(queue.running() && queue.items().back().state == JobState::running);
        QTRY_VERIFY(list->viewport()->rect().contains(list->visualRect(list->model()->index(8, 0))));
        QVERIFY(!list->viewport()->rect().intersects(list->visualRect(list->model()->index(0, 0))));
        *open = true;
        QTRY_VERIFY(!queue.hasWork());
    }

private:
    test::TestTree m_home;
};

QTEST_MAIN(QueueViewTest)
#include "tst_queueview.moc"
