#include "panefixture.h"

#include "app/detail/paneheaderbar.h"
#include "app/detail/paneinput.h"
#include "app/detail/panetabstrip.h"

#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QToolButton>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

class TestPaneHeader : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rootFolderIsLabelledSlash()
    {
        test::TestTree tree;
        PaneFixture f("/", tree.root());
        QCOMPARE(f.view->tabStrip()->tabButtons().size(), 1);
        QCOMPARE(f.view->tabStrip()->tabButtons().at(0)->text(), "/");
        QCOMPARE(f.child<QLabel>("directoryLabel")->text(), "/");
        QCOMPARE(detail::folderLabel("/home/someone/"), "someone");
    }

    void closeTabEnabledOnlyWithTwoTabs()
    {
        test::TestTree tree;
        tree.folder("one");
        PaneFixture f(tree.root(), tree.root());
        auto *close = f.child<QToolButton>("closeTabButton");
        QVERIFY(!close->isEnabled());
        QTest::mouseClick(f.child<QToolButton>("newTabButton"), Qt::LeftButton);
        QCOMPARE(f.pane->tabs().size(), std::size_t(2));
        QCOMPARE(f.view->tabStrip()->tabButtons().size(), 2);
        QVERIFY(close->isEnabled());
        QCOMPARE(f.view->tabStrip()->tabButtons().at(1)->property("currentTab").toBool(), true);
        QTest::mouseClick(close, Qt::LeftButton);
        QCOMPARE(f.pane->tabs().size(), std::size_t(1));
        QVERIFY(!close->isEnabled());
    }

    void tabButtonSelectsItsTab()
    {
        test::TestTree tree;
        tree.folder("one");
        tree.folder("two");
        PaneFixture f(tree / "one", tree.root());
        f.pane->newTab();
        f.pane->navigate(tree / "two");
        QCOMPARE(f.view->tabStrip()->tabButtons().at(1)->text(), "two");
        QTest::mouseClick(f.view->tabStrip()->tabButtons().at(0), Qt::LeftButton);
        QCOMPARE(f.pane->tabIndex(), 0);
        QCOMPARE(f.pane->directory(), tree / "one");
        QCOMPARE(f.child<QLabel>("directoryLabel")->text(), "one");
        QVERIFY(f.activations > 0);
    }

    void pathFieldExpandsTildeNavigatesAndActivates()
    {
        test::TestTree tree;
        tree.folder("home/Documents/inner");
        const QByteArray oldHome = qgetenv("HOME");
        qputenv("HOME", QByteArray::fromStdString((tree / "home").string()));
        PaneFixture f(tree.root(), tree.root());
        auto *path = f.child<QLineEdit>("pathField");
        QCOMPARE(path->text(), QString::fromStdString(tree.root().string()));
        path->setFocus();
        path->selectAll();
        QTest::keyClicks(path, "~/Documents");
        QCOMPARE(f.pane->path(), "~/Documents");
        const int before = f.activations;
        QTest::keyClick(path, Qt::Key_Return);
        qputenv("HOME", oldHome);
        QCOMPARE(f.pane->directory(), tree / "home" / "Documents");
        QCOMPARE(path->text(), QString::fromStdString((tree / "home" / "Documents").string()));
        QVERIFY(f.activations > before);
        QVERIFY(!path->hasFocus());
        QCOMPARE(detail::typedFolder("inner", "/nowhere", tree / "home" / "Documents"),
                 tree / "home" / "Documents" / "inner");
        QCOMPARE(detail::typedFolder("~", "/h", "/base"), fs::path("/h"));
    }

    void pathFieldKeepsBytesOfFolderNamesThatAreNotUtf8()
    {
        test::TestTree tree;
        const fs::path odd = tree.folder(std::string("caf\xe9"));
        tree.folder(std::string("caf\xe9/inner"));
        PaneFixture f(odd, tree.root());
        QVERIFY(!f.pane->error().has_value());
        auto *path = f.child<QLineEdit>("pathField");
        QVERIFY(path->text().contains(QChar(0xFFFD)));
        path->setFocus();
        QTest::keyClick(path, Qt::Key_Return);
        QCOMPARE(f.pane->directory(), odd);
        QTest::keyClicks(path, "/inner");
        QTest::keyClick(path, Qt::Key_Return);
        QCOMPARE(f.pane->directory(), odd / "inner");
    }

    void themeStartsFromTheParentsKey()
    {
        test::TestTree tree;
        QWidget parent;
        CommanderThemeKey::set(&parent, CommanderTheme::aubergine);
        PaneModelOptions options;
        Preferences preferences(QString::fromStdString((tree / "p.ini").string()));
        options.preferences = &preferences;
        PaneModel pane(tree.root(), QString(), options);
        FilePane inside(pane, &parent);
        QCOMPARE(inside.theme(), CommanderTheme::aubergine);
        FilePane alone(pane);
        QCOMPARE(alone.theme(), CommanderTheme::classicNavy);
    }

    void favouritesMenuTogglesAndNavigates()
    {
        test::TestTree tree;
        tree.folder("fav");
        tree.folder("elsewhere");
        PaneFixture f(tree / "fav", tree.root());
        QMenu *menu = f.view->headerBar()->favouritesMenu();
        Q_EMIT menu->aboutToShow();
        QCOMPARE(menu->actions().size(), 1);
        QCOMPARE(menu->actions().at(0)->text(), "Favourite this folder");
        menu->actions().at(0)->trigger();
        QCOMPARE(f.pane->favourites(), std::vector<fs::path>{tree / "fav"});
        Q_EMIT menu->aboutToShow();
        QCOMPARE(menu->actions().size(), 2);
        QCOMPARE(menu->actions().at(0)->text(), "Remove current favourite");
        QCOMPARE(menu->actions().at(1)->text(), QString::fromStdString((tree / "fav").string()));
        f.pane->navigate(tree / "elsewhere");
        Q_EMIT menu->aboutToShow();
        QCOMPARE(menu->actions().at(0)->text(), "Favourite this folder");
        menu->actions().at(1)->trigger();
        QCOMPARE(f.pane->directory(), tree / "fav");
    }

    void locationsMenuOffersHomeRootAndVolumes()
    {
        test::TestTree tree;
        tree.folder("volumes/Backup");
        PaneFixture f(tree.root(), tree.root());
        QMenu *menu = f.view->headerBar()->locationsMenu();
        f.view->headerBar()->setVolumeSource([&] {
            return std::vector<fs::path>{"/", tree / "volumes" / "Backup"};
        });
        Q_EMIT menu->aboutToShow();
        QStringList texts;
        for (QAction *action : menu->actions())
            texts << action->text();
        QCOMPARE(texts, (QStringList{"Home", "Root", "/", "Backup"}));
        menu->actions().at(3)->trigger();
        QCOMPARE(f.pane->directory(), tree / "volumes" / "Backup");
        menu->actions().at(1)->trigger();
        QCOMPARE(f.pane->directory(), fs::path("/"));

        f.view->headerBar()->setVolumeSource([] { return std::vector<fs::path>{}; });
        Q_EMIT menu->aboutToShow();
        QCOMPARE(menu->actions().size(), 2);
    }

    void hiddenToggleFollowsPane()
    {
        test::TestTree tree;
        tree.file(".secret");
        tree.file("plain");
        PaneFixture f(tree.root(), tree.root());
        QCOMPARE(f.model()->rowCount(), 1);
        auto *toggle = f.child<QToolButton>("hiddenToggle");
        QSignalSpy listed(f.pane.get(), &PaneModel::listingApplied);
        QTest::mouseClick(toggle, Qt::LeftButton);
        QVERIFY(f.pane->showHidden());
        QVERIFY(listed.wait(5000));
        QCOMPARE(f.model()->rowCount(), 2);
        f.pane->setShowHidden(false);
        QVERIFY(!toggle->isChecked());
    }

    void outlineFollowsActiveState()
    {
        test::TestTree tree;
        PaneFixture f(tree.root(), tree.root());
        f.view->setTheme(CommanderTheme::classicNavy);
        const QImage inactive = f.view->grab().toImage();
        f.view->setActive(true);
        const QImage active = f.view->grab().toImage();
        // The top edge, away from the rounded corners.
        const QColor edgeInactive = inactive.pixelColor(inactive.width() / 2, 0);
        const QColor edgeActive = active.pixelColor(active.width() / 2, 0);
        QVERIFY(edgeActive != edgeInactive);
        QVERIFY(edgeActive.blue() > edgeInactive.blue());
        QVERIFY(f.child<QLabel>("folderIcon")->property("accented").toBool());
    }

    void headersToggleSortAndDirection()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        QCOMPARE(f.headerText(0), "NAME ↑");
        QCOMPARE(f.headerText(1), "SIZE");
        QCOMPARE(f.headerText(2), "MODIFIED");
        f.pressHeader(1);
        QCOMPARE(f.pane->sort(), FileSort::size);
        QVERIFY(f.pane->ascending());
        QCOMPARE(f.headerText(1), "SIZE ↑");
        QCOMPARE(f.headerText(0), "NAME");
        QCOMPARE(f.urlAt(0).filename(), "f0");
        f.pressHeader(1);
        QVERIFY(!f.pane->ascending());
        QCOMPARE(f.headerText(1), "SIZE ↓");
        QCOMPARE(f.urlAt(0).filename(), "f5");
        f.pressHeader(0);
        QCOMPARE(f.pane->sort(), FileSort::name);
        QVERIFY(f.pane->ascending());
        QCOMPARE(f.headerText(0), "NAME ↑");
        QCOMPARE(f.headerText(2), "MODIFIED");
        QCOMPARE(f.model()->headerData(1, Qt::Horizontal, Qt::TextAlignmentRole).value<Qt::Alignment>() &
                     Qt::AlignRight,
                 Qt::AlignRight);
    }
};

QTEST_MAIN(TestPaneHeader)
#include "tst_paneheader.moc"
