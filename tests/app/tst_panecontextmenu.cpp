#include "windowfixture.h"

#include "app/applicationchooser.h"
#include "app/panecontextmenu.h"
#include "recordingapplication.h"

#include <QContextMenuEvent>
#include <QListWidget>
#include <QMenu>

using namespace quillorn;
using namespace quillorn::test;

// The panes' context menu in the real window, by right-click and Menu key:
// which items it acts on, its entries from the command table, Copy path, the
// folder's entries, Open with a desktop application the test registers, and
// the keyboard back on the pane afterwards.
class PaneContextMenuTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // The fixture points XDG_DATA_HOME and XDG_CONFIG_HOME at `home` before the
        // window asks the desktop anything.
        addRecordingApplication(m_f.home, m_f.home / "data/applications", "quillorn-recorder.desktop",
                                "Quillorn Recorder", "text/plain;", m_record);
        QVERIFY(indexApplications(m_f.home / "data/applications"));
        m_f.home.file("config/mimeapps.list",
                      "[Default Applications]\ntext/plain=quillorn-recorder.desktop\n");
    }
    void init() { m_f.setUp(); }
    void cleanup() { m_f.tearDown(); }

    // Made from the right pane's filter field: the keyboard comes back to the list.
    void rightClickOnAnUntaggedRowActsOnThatRowAlone()
    {
        m_f.left().setSelection({*m_f.tree / "Left/b.txt"});
        m_f.view->model().setActiveLeft(false);
        QTest::keyClick(m_f.view.get(), Qt::Key_K, Qt::ControlModifier);
        QVERIFY(qobject_cast<QLineEdit *>(QApplication::focusWidget()));
        QMenu *menu = rightClick("c.txt");
        QCOMPARE(menu->objectName(), "itemMenu");
        QVERIFY(m_f.view->model().activeLeft());
        QCOMPARE(m_f.left().cursor(), std::optional(*m_f.tree / "Left/c.txt"));
        QVERIFY(m_f.left().selection().empty());
        QCOMPARE(entries(menu), expectedEntries(PaneContextMenu::itemEntries));
        // On a file every entry acts, except the size of folders.
        for (QAction *action : menu->actions())
            QVERIFY2(action->isSeparator() || action->isEnabled() == (action->objectName() != "folderSize"),
                     qPrintable(action->objectName()));
        QCOMPARE(action(menu, "f5")->text(), "Copy to other pane\tF5");
        QCOMPARE(action(menu, "copyPath")->text(), "Copy path\tCtrl+Shift+C");
        closeAndCheckTheKeyboard(menu, *m_f.tree / "Left/c.txt");
    }

    void rightClickOnATaggedRowKeepsTheTagsAndCopiesTheirPaths()
    {
        const fs::path odd = m_f.tree->file("Left/caf\xe9.txt", "x");
        m_f.left().refresh();
        QTRY_VERIFY(m_f.left().visibleIndexOf(odd));
        const std::set<fs::path> tags{*m_f.tree / "Left/d.txt", odd};
        m_f.left().setSelection(tags);
        QMenu *menu = rightClick("d.txt");
        QCOMPARE(m_f.left().selection(), tags);
        QVERIFY(!action(menu, "f2")->isEnabled()); // one name at a time
        QApplication::clipboard()->clear();
        QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(action(menu, "copyPath")).center());
        QTRY_VERIFY(!QApplication::clipboard()->text().isEmpty());
        QStringList lines = QApplication::clipboard()->text().split('\n');
        lines.sort();
        const QString shown = QString::fromStdString(m_f.tree->root().string()) + "/Left/caf\uFFFD.txt";
        QCOMPARE(lines, (QStringList{shown, QString::fromStdString(*m_f.tree / "Left/d.txt")}));
        QCOMPARE(m_f.view->model().status(), "Copied 2 path(s)");
        QTRY_COMPARE(QApplication::focusWidget(), m_f.view->centralWidget());
    }

    void menuKeyWithoutItemsOpensTheFolderMenu()
    {
        m_f.left().setCursor(std::nullopt);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Menu);
        QMenu *menu = shownMenu();
        QCOMPARE(menu->objectName(), "folderMenu");
        QCOMPARE(entries(menu), expectedEntries(PaneContextMenu::folderEntries));
        QVERIFY(action(menu, "showHidden")->isCheckable() && !action(menu, "showHidden")->isChecked());
        QCOMPARE(action(menu, "showHidden")->text(), "Show hidden\tCtrl+Shift+.");

        QTest::keyClick(menu, Qt::Key_Up); // from the bottom: Sort by
        QTest::keyClick(menu, Qt::Key_Right);
        auto *sorts = menu->findChild<QMenu *>("sortByMenu");
        QTRY_VERIFY(sorts->isVisible());
        QCOMPARE(entries(sorts), (QStringList{"sortBy1", "sortBy2", "sortBy3"}));
        QCOMPARE(sorts->actions().at(1)->text(), "size\tCtrl+2");
        QVERIFY(sorts->actions().at(0)->isChecked());
        QTest::keyClick(sorts, Qt::Key_Down);
        QTest::keyClick(sorts, Qt::Key_Return);
        QTRY_COMPARE(m_f.left().sort(), FileSort::size);
        QTRY_COMPARE(QApplication::focusWidget(), m_f.view->centralWidget());

        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Menu);
        menu = shownMenu();
        QTest::mouseClick(menu, Qt::LeftButton, {},
                          menu->actionGeometry(action(menu, "showHidden")).center());
        QTRY_VERIFY(m_f.left().showHidden());
    }

    void itemEntriesAreDisabledWhileNothingIsSelected()
    {
        m_f.left().setCursor(std::nullopt);
        m_f.view->contextMenu()->popUp(PaneContextMenu::Kind::items, m_f.view->geometry().center(), {});
        QMenu *menu = shownMenu();
        for (QAction *action : menu->actions())
            QVERIFY2(action->isSeparator() || !action->isEnabled(), qPrintable(action->objectName()));
        QTest::keyClick(menu, Qt::Key_Escape);
        QTRY_VERIFY(!menu->isVisible());
    }

    // The default application first, "Other application…" last; either way the
    // application gets the path of the item.
    void openWithStartsTheChosenApplicationWithThePath()
    {
        const fs::path item = *m_f.tree / "Left/c.txt";
        m_f.left().setCursor(item);
        QTest::keyClick(m_f.view->centralWidget(), Qt::Key_Menu);
        QMenu *menu = shownMenu();
        QCOMPARE(menu->objectName(), "itemMenu");
        QTest::keyClick(menu, Qt::Key_Down); // Open
        QTest::keyClick(menu, Qt::Key_Down); // Open with
        QTest::keyClick(menu, Qt::Key_Right);
        auto *applications = menu->findChild<QMenu *>("openWithMenu");
        QTRY_VERIFY(applications->isVisible());
        const QStringList choices = entries(applications);
        QCOMPARE(choices.value(0), "openWith:quillorn-recorder.desktop");
        QCOMPARE(choices.last(), "otherApplication");
        QCOMPARE(applications->actions().at(0)->text(), "Quillorn Recorder");
        QTest::keyClick(applications, Qt::Key_Return);
        QTRY_VERIFY(fs::exists(m_record));
        QCOMPARE(recordedArguments(m_record), std::vector<std::string>{item});
        fs::remove(m_record);

        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Menu);
        menu = shownMenu();
        QTest::keyClick(menu, Qt::Key_Down);
        QTest::keyClick(menu, Qt::Key_Down);
        QTest::keyClick(menu, Qt::Key_Right);
        applications = menu->findChild<QMenu *>("openWithMenu");
        QTRY_VERIFY(applications->isVisible());
        QTest::keyClick(applications, Qt::Key_Up); // the last entry
        QTest::keyClick(applications, Qt::Key_Return);
        ApplicationChooser *chooser = nullptr;
        QTRY_VERIFY((chooser = qobject_cast<ApplicationChooser *>(QApplication::activeModalWidget())));
        QTest::keyClicks(chooser->filterField(), "quillorn rec");
        QCOMPARE(chooser->list()->currentItem()->text(), "Quillorn Recorder");
        QTest::keyClick(chooser->filterField(), Qt::Key_Return);
        QTRY_VERIFY(fs::exists(m_record));
        QCOMPARE(recordedArguments(m_record), std::vector<std::string>{item});
        QTRY_COMPARE(QApplication::focusWidget(), m_f.view->centralWidget());
    }

private:
    // A right-click on the named row of the left pane, as the platform sends it:
    // the press, then the context-menu event.
    QMenu *rightClick(const QString &item)
    {
        FilePane *pane = m_f.view->leftPane();
        QWidget *viewport = pane->listView()->viewport();
        const std::optional<int> row = pane->listModel()->rowOf(*m_f.tree / "Left" / item.toStdString());
        const QPoint at = pane->listView()->visualRect(pane->listModel()->index(*row, 0)).center();
        QTest::mousePress(viewport, Qt::RightButton, {}, at);
        QContextMenuEvent event(QContextMenuEvent::Mouse, at, viewport->mapToGlobal(at));
        QApplication::sendEvent(viewport, &event);
        QTest::mouseRelease(viewport, Qt::RightButton, {}, at);
        return shownMenu();
    }

    QMenu *shownMenu() const
    {
        QMenu *menu = m_f.view->contextMenu()->menu();
        [&] { QTRY_VERIFY(menu && menu->isVisible()); }();
        // What the window system says about the shown menu arrives while it is
        // open, as it does while a user looks at it, not after it has closed.
        QCoreApplication::processEvents();
        return menu;
    }

    static QAction *action(QMenu *menu, const char *id) { return menu->findChild<QAction *>(id); }

    static QStringList entries(QMenu *menu)
    {
        QStringList ids;
        for (QAction *action : menu->actions())
            if (!action->isSeparator())
                ids << action->objectName();
        return ids;
    }

    // The menu's commands that the table has: others may join it later.
    QStringList expectedEntries(const QStringList &ids) const
    {
        QStringList present;
        for (const QString &id : ids)
            if (!id.isEmpty() && m_f.view->commands().find(id))
                present << id;
        return present;
    }

    // Escape closes the menu; the keyboard is back on the pane: Space tags the item.
    void closeAndCheckTheKeyboard(QMenu *menu, const fs::path &cursorItem)
    {
        QTest::keyClick(menu, Qt::Key_Escape);
        QTRY_VERIFY(!menu->isVisible());
        QTRY_COMPARE(QApplication::focusWidget(), m_f.view->centralWidget());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
        QVERIFY(m_f.left().isTagged(cursorItem));
    }

    WindowFixture m_f;
    const fs::path m_record = m_f.home / "launched.record";
};

QTEST_MAIN(PaneContextMenuTest)
#include "tst_panecontextmenu.moc"
