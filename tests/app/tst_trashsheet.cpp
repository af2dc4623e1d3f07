#include "windowfixture.h"

#include "app/detail/paneheaderbar.h"
#include "platform/posix/trash.h"
#include "scopedmount.h"
#include "tools/trashsheet.h"

#include <QMenu>
#include <QTableView>

#include <unistd.h>

using namespace quillorn;
using namespace quillorn::test;

// The Trash sheet in the window, over items `gio trash` put in the test's home trash.
class TrashSheetTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_f.setUp(); }
    void cleanup() { m_f.tearDown(); }

    void opensFromTheLocationsMenuAndRestoresTheTaggedItemByKeys()
    {
        trash({"c.txt", "d.txt"});
        // Only the home trash: the machine's own volumes keep theirs out of the test.
        m_f.view->leftPane()->headerBar()->setVolumeSource([] { return std::vector<MountedVolume>{}; });
        QTest::keyClick(m_f.view.get(), Qt::Key_D, Qt::ControlModifier | Qt::ShiftModifier);
        QMenu *locations = m_f.view->leftPane()->headerBar()->locationsMenu();
        QTRY_VERIFY(locations->isVisible());
        for (int step = 0; step < 20 && !(locations->activeAction() &&
                                          locations->activeAction()->objectName() == "trashEntry");
             ++step)
            QTest::keyClick(locations, Qt::Key_Down);
        QTest::keyClick(locations, Qt::Key_Return);

        QTRY_VERIFY(m_f.sheet<TrashSheet>() && m_f.sheet<TrashSheet>()->loaded());
        TrashSheet *sheet = m_f.sheet<TrashSheet>();
        QCOMPARE(sheet->items().size(), std::size_t(2));
        QTRY_COMPARE(QApplication::focusWidget(), sheet->findChild<QTableView *>("trashList"));
        QVERIFY(sheet->findChild<QPushButton *>("restoreButton")->text().contains("Return"));

        // Space tags the first row and moves on; Return restores the tagged one only.
        const fs::path first = sheet->selected().front();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        QCOMPARE(sheet->selected(), std::vector<fs::path>{first});
        QCOMPARE(sheet->status(), QString("1 of 2 items tagged."));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);

        QTRY_VERIFY(!m_f.view->toolHost()->sheet());
        QTRY_VERIFY(!m_f.view->model().queue().hasWork());
        QCOMPARE(m_f.view->model().queue().items().back().stateText(), QString("Complete"));
        const fs::path back = *m_f.tree / "Left" / first.filename();
        QCOMPARE(TestTree::read(back), std::string("x"));
        QCOMPARE(TestTree::names(m_f.home / "data/Trash/info").size(), std::size_t(1));
        // The keyboard is back on the panes: Home moves the left pane's cursor.
        QTRY_COMPARE(QApplication::focusWidget(), m_f.view->centralWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Home);
        QCOMPARE(m_f.left().cursor(), std::optional<fs::path>(*m_f.tree / "Left/alpha"));
    }

    void deletingAsksFirstAndAnEmptyTrashOffersNothing()
    {
        trash({"b.txt"});
        m_f.view->model().openTrash({});
        QTRY_VERIFY(m_f.sheet<TrashSheet>() && m_f.sheet<TrashSheet>()->loaded());
        QTRY_COMPARE(QApplication::focusWidget(),
                     m_f.sheet<TrashSheet>()->findChild<QTableView *>("trashList"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Delete); // the fixture's alerts answer Cancel
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Delete, Qt::ShiftModifier);
        QCOMPARE(m_f.calls,
                 (QStringList{"alert:Delete \u2018b.txt\u2019 for good?", "alert:Empty the Trash?"}));
        QVERIFY(m_f.sheet<TrashSheet>());
        QVERIFY(m_f.view->model().queue().items().empty());

        fs::remove_all(m_f.home / "data/Trash");
        m_f.view->model().setTool(std::nullopt);
        m_f.view->model().openTrash({});
        QTRY_VERIFY(m_f.sheet<TrashSheet>() && m_f.sheet<TrashSheet>()->loaded());
        QCOMPARE(m_f.sheet<TrashSheet>()->status(), QString("The Trash is empty."));
        QVERIFY(!m_f.sheet<TrashSheet>()->findChild<QPushButton *>("emptyButton")->isEnabled());
    }

private:
    // Trashes items of Left the way the desktop does; by this program where gio is missing.
    void trash(const std::vector<std::string> &names)
    {
        for (const std::string &name : names) {
            const fs::path item = *m_f.tree / "Left" / name;
            if (::access("/usr/bin/gio", X_OK) != 0) {
                trashItem(item);
                continue;
            }
            int status = 0;
            const std::string output = runCommand("HOME=" + shellQuote(m_f.home.root()) +
                                                      " XDG_DATA_HOME=" + shellQuote(m_f.home / "data") +
                                                      " gio trash " + shellQuote(item) + " 2>&1",
                                                  &status);
            QVERIFY2(status == 0, output.c_str());
        }
    }

    WindowFixture m_f;
};

QTEST_MAIN(TrashSheetTest)
#include "tst_trashsheet.moc"
