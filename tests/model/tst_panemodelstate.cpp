#include "panefixture.h"

#include <QSignalSpy>
#include <QTest>
#include <fstream>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

class PaneModelStateTest : public QObject {
    Q_OBJECT

private:
    static QString text(const fs::path &path) { return QString::fromStdString(path.string()); }

    // Reads the store as another process would see it.
    static Preferences reread(const PaneFixture &fixture)
    {
        return Preferences(fixture.preferences.fileName());
    }

private Q_SLOTS:
    void firstStartUsesTheStartFolderAndDefaults()
    {
        TestTree tree;
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root(), "left");
        QCOMPARE(pane->tabs(), std::vector<fs::path>{tree.root()});
        QCOMPARE(pane->tabIndex(), 0);
        QCOMPARE(pane->directory(), tree.root());
        QCOMPARE(pane->path(), text(tree.root()));
        QVERIFY(!pane->showHidden());
        QCOMPARE(pane->sort(), FileSort::name);
        QVERIFY(pane->ascending());
        QVERIFY(pane->favourites().empty());
        QCOMPARE(pane->persistenceKey(), QString("left"));
        QVERIFY(settled(*pane));
        QVERIFY(!reread(fixture).contains("left.tabs")); // restoring writes nothing back
    }

    void lastDirectoryChoosesTheTabOverTabIndex()
    {
        TestTree tree;
        const fs::path one = tree.folder("one"), two = tree.folder("two");
        PaneFixture fixture;
        fixture.preferences.setStringList("left.tabs", {text(one), text(two)});
        fixture.preferences.setText("left.lastDirectory", text(two));
        fixture.preferences.setInteger("left.tabIndex", 0);
        auto pane = fixture.pane(tree.root(), "left");
        QCOMPARE(pane->tabIndex(), 1);
        QCOMPARE(pane->directory(), two);
    }

    void tabIndexIsClamped_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<int>("expected");
        QTest::newRow("7 of three") << "7" << 2;
        QTest::newRow("-2") << "-2" << 0;
        QTest::newRow("garbage") << "seven" << 0;
        QTest::newRow("1") << "1" << 1;
    }

    void tabIndexIsClamped()
    {
        QFETCH(QString, stored);
        QFETCH(int, expected);
        TestTree tree;
        const std::vector<fs::path> folders{tree.folder("a"), tree.folder("b"), tree.folder("c")};
        PaneFixture fixture;
        fixture.preferences.setStringList("right.tabs",
                                          {text(folders[0]), text(folders[1]), text(folders[2])});
        fixture.preferences.setText("right.lastDirectory", text(tree / "elsewhere"));
        fixture.preferences.setText("right.tabIndex", stored);
        auto pane = fixture.pane(tree.root(), "right");
        QCOMPARE(pane->tabIndex(), expected);
        QCOMPARE(pane->directory(), folders[static_cast<std::size_t>(expected)]);
    }

    void unusableSettingsFallBack()
    {
        TestTree tree;
        PaneFixture fixture;
        fixture.preferences.setText("left.sort", "size");
        fixture.preferences.setText("left.ascending", "no");
        fixture.preferences.setText("left.hidden", "yes");
        fixture.preferences.setStringList("left.tabs", {});
        auto pane = fixture.pane(tree.root(), "left");
        QCOMPARE(pane->sort(), FileSort::name);
        QVERIFY(pane->ascending());
        QVERIFY(!pane->showHidden());
        QCOMPARE(pane->tabs(), std::vector<fs::path>{tree.root()});
    }

    void storedSettingsAreRestored()
    {
        TestTree tree;
        PaneFixture fixture;
        fixture.preferences.setText("left.sort", "Modified");
        fixture.preferences.setText("left.ascending", "false");
        fixture.preferences.setText("left.hidden", "true");
        tree.file(".dotfile");
        auto pane = fixture.pane(tree.root(), "left");
        QCOMPARE(pane->sort(), FileSort::modified);
        QVERIFY(!pane->ascending());
        QVERIFY(pane->showHidden());
        QVERIFY(settled(*pane));
        QCOMPARE(namesOf(pane->entries()), QStringList{".dotfile"});
    }

    void aGarbagePreferencesFileGivesTheDefaults()
    {
        TestTree tree;
        PaneFixture fixture;
        {
            std::ofstream(fs::path(fixture.preferences.fileName().toStdString()), std::ios::binary)
                << "[General]\nleft.tabs=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x3)\nleft.tabIndex=@Rect(1 2 3 "
                   "4)\n"
                   "left.sort=@Size(1 2)\nleft.favourites=relative, also relative\n\xff\xfe\x01garbage[[\n";
        }
        Preferences garbage(fixture.preferences.fileName());
        PaneModelOptions options;
        options.preferences = &garbage;
        PaneModel pane(tree.root(), "left", options);
        QCOMPARE(pane.tabs(), std::vector<fs::path>{tree.root()});
        QCOMPARE(pane.tabIndex(), 0);
        QCOMPARE(pane.sort(), FileSort::name);
        QVERIFY(pane.ascending());
        QVERIFY(pane.favourites().empty());
        QVERIFY(settled(pane));
        QVERIFY(!pane.error());
    }

    void everyChangeIsPersistedAndRestored()
    {
        TestTree tree;
        const fs::path a = tree.folder("a"), b = tree.folder("b");
        PaneFixture fixture;
        {
            auto pane = fixture.pane(a, "left");
            pane->toggleFavourite();
            pane->newTab();
            pane->navigate(b);
            pane->setSort(FileSort::size);
            pane->setAscending(false);
            pane->setShowHidden(true);
            pane->setFilter("not persisted");
            QVERIFY(settled(*pane));
        }
        Preferences stored = reread(fixture);
        QCOMPARE(stored.stringList("left.tabs"), (QStringList{text(a), text(b)}));
        QCOMPARE(stored.integer("left.tabIndex", -1), 1);
        QCOMPARE(stored.text("left.lastDirectory"), text(b));
        QCOMPARE(stored.text("left.sort"), QString("Size"));
        QVERIFY(stored.isBoolean("left.ascending") && !stored.boolean("left.ascending", true));
        QVERIFY(stored.boolean("left.hidden", false));
        QCOMPARE(stored.stringList("left.favourites"), QStringList{text(a)});

        auto again = fixture.pane(tree.root(), "left");
        QCOMPARE(again->tabs(), (std::vector<fs::path>{a, b}));
        QCOMPARE(again->tabIndex(), 1);
        QCOMPARE(again->directory(), b);
        QCOMPARE(again->sort(), FileSort::size);
        QVERIFY(!again->ascending());
        QVERIFY(again->showHidden());
        QCOMPARE(again->favourites(), std::vector<fs::path>{a});
        QVERIFY(again->filter().isEmpty());
    }

    void anEmptyKeyPersistsNothing()
    {
        TestTree tree;
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root(), {});
        pane->newTab();
        pane->toggleFavourite();
        pane->setSort(FileSort::modified);
        pane->navigate(tree.folder("x"));
        QVERIFY(settled(*pane));
        QVERIFY(reread(fixture).contains("left.tabs") == false);
        QVERIFY(!reread(fixture).contains(".tabs"));
        QVERIFY(!fs::exists(fixture.preferences.fileName().toStdString()) ||
                TestTree::read(fixture.preferences.fileName().toStdString()).find("tabs") ==
                    std::string::npos);
    }

    // ---- tabs

    void closeTabKeepsTheLastAndActivatesTheNeighbour()
    {
        TestTree tree;
        const fs::path a = tree.folder("a"), b = tree.folder("b"), c = tree.folder("c");
        PaneFixture fixture;
        auto pane = fixture.pane(a, "left");
        QSignalSpy tabsSpy(pane.get(), &PaneModel::tabsChanged);
        pane->closeTab();
        QCOMPARE(tabsSpy.count(), 0);
        pane->newTab();
        pane->navigate(b);
        pane->newTab();
        pane->navigate(c);
        QCOMPARE(pane->tabs(), (std::vector<fs::path>{a, b, c}));

        pane->selectTab(1);
        pane->closeTab(); // the middle one: the following tab becomes active
        QCOMPARE(pane->tabs(), (std::vector<fs::path>{a, c}));
        QCOMPARE(pane->tabIndex(), 1);
        QCOMPARE(pane->directory(), c);
        pane->closeTab(); // the last one: the new last becomes active
        QCOMPARE(pane->tabs(), std::vector<fs::path>{a});
        QCOMPARE(pane->tabIndex(), 0);
        QCOMPARE(pane->directory(), a);
        QCOMPARE(reread(fixture).stringList("left.tabs"), QStringList{text(a)});
    }

    void newTabTwiceOnTheSameFolder()
    {
        TestTree tree;
        tree.file("item");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root(), "left");
        QVERIFY(settled(*pane));
        pane->setFilter("it");
        pane->toggleTagAndAdvance();
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        pane->newTab();
        pane->newTab();
        QCOMPARE(pane->tabs(), (std::vector<fs::path>(3, tree.root())));
        QCOMPARE(pane->tabIndex(), 2);
        QCOMPARE(pane->filter(), QString("it")); // the new tab shows the same listing as it was
        QCOMPARE(pane->selection().size(), std::size_t(1));
        QVERIFY(!pane->loading());
        QCOMPARE(reread(fixture).integer("left.tabIndex", -1), 2);
    }

    void selectTabOutOfRangeDoesNothingAndReselectingRelists()
    {
        TestTree tree;
        const fs::path item = tree.file("item");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root(), "left");
        pane->newTab();
        pane->newTab();
        QVERIFY(settled(*pane));
        pane->selectTab(5);
        pane->selectTab(-1);
        QCOMPARE(pane->tabIndex(), 2);
        QVERIFY(!pane->loading());

        pane->setFilter("it");
        pane->setSelection({item});
        pane->selectTab(2);
        QVERIFY(pane->filter().isEmpty());
        QVERIFY(pane->selection().empty());
        QVERIFY(!pane->cursor());
        QVERIFY(pane->loading());
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), std::optional<fs::path>(item));
    }

    void navigatingChangesOnlyTheActiveTab()
    {
        TestTree tree;
        const fs::path start = tree.folder("start"), other = tree.folder("other");
        PaneFixture fixture;
        auto pane = fixture.pane(start, "left");
        pane->newTab();
        pane->navigate(other);
        QCOMPARE(pane->tabs(), (std::vector<fs::path>{start, other}));
        pane->selectTab(0);
        QCOMPARE(pane->directory(), start);
        QCOMPARE(reread(fixture).text("left.lastDirectory"), text(start));
    }

    // ---- favourites

    void favouritesAreOrderedByName()
    {
        TestTree tree;
        const fs::path zeta = tree.folder("Zeta"), alpha = tree.folder("x/alpha"), beta = tree.folder("Beta");
        PaneFixture fixture;
        auto pane = fixture.pane(zeta, "left");
        pane->toggleFavourite();
        pane->navigate(alpha);
        pane->toggleFavourite();
        pane->navigate(beta);
        pane->toggleFavourite();
        QCOMPARE(pane->favourites(), (std::vector<fs::path>{alpha, beta, zeta}));

        fixture.preferences.setStringList("right.favourites", {text(zeta), text(beta), text(alpha)});
        auto restored = fixture.pane(tree.root(), "right");
        QCOMPARE(restored->favourites(), (std::vector<fs::path>{alpha, beta, zeta}));
    }

    void toggleFavouriteTwiceRestoresTheListAndWritesBothTimes()
    {
        TestTree tree;
        const fs::path kept = tree.folder("kept"), toggled = tree.folder("toggled");
        PaneFixture fixture;
        auto pane = fixture.pane(kept, "left");
        pane->toggleFavourite();
        pane->navigate(toggled);
        const auto before = pane->favourites();
        pane->toggleFavourite();
        QCOMPARE(reread(fixture).stringList("left.favourites"), (QStringList{text(kept), text(toggled)}));
        pane->toggleFavourite();
        QCOMPARE(pane->favourites(), before);
        QCOMPARE(reread(fixture).stringList("left.favourites"), QStringList{text(kept)});
    }

    void aRememberedFolderThatIsGoneShowsAnError()
    {
        TestTree tree;
        PaneFixture fixture;
        fixture.preferences.setStringList("left.tabs", {text(tree / "deleted")});
        fixture.preferences.setStringList("left.favourites", {text(tree / "deleted")});
        auto pane = fixture.pane(tree.root(), "left");
        QCOMPARE(pane->directory(), tree / "deleted");
        QVERIFY(settled(*pane, false));
        QVERIFY(pane->error());
        QCOMPARE(pane->favourites().size(), std::size_t(1));
    }
};

QTEST_GUILESS_MAIN(PaneModelStateTest)
#include "tst_panemodelstate.moc"
