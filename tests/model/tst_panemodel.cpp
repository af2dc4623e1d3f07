#include "panefixture.h"

#include <QSignalSpy>
#include <QTest>
#include <fstream>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;
using Cursor = std::optional<fs::path>;
using Folders = std::vector<fs::path>;

// Order, filter, cursor and tags over listed folders; tabs, favourites and what
// a pane keeps in its preferences.
class PaneModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void order_data()
    {
        QTest::addColumn<int>("sort");
        QTest::addColumn<bool>("ascending");
        QTest::addColumn<QStringList>("expected");
        const int name = int(FileSort::name), size = int(FileSort::size), modified = int(FileSort::modified);
        QTest::newRow("name") << name << true << QStringList{"A", "b", "a9", "a10", "big", "small"};
        QTest::newRow("name down") << name << false << QStringList{"b", "A", "small", "big", "a10", "a9"};
        QTest::newRow("size") << size << true << QStringList{"A", "b", "small", "a9", "a10", "big"};
        QTest::newRow("size down") << size << false << QStringList{"b", "A", "big", "a10", "a9", "small"};
        QTest::newRow("modified") << modified << true << QStringList{"A", "b", "a10", "small", "big", "a9"};
        QTest::newRow("modified down")
            << modified << false << QStringList{"b", "A", "a9", "big", "small", "a10"};
    }
    void order()
    {
        QFETCH(int, sort);
        QFETCH(bool, ascending);
        QFETCH(QStringList, expected);
        using Item = std::tuple<const char *, int, int>; // name, size (-1: a folder), age in seconds
        PaneFixture f;
        for (auto [name, size, seconds] :
             {Item{"A", -1, 50}, Item{"b", -1, 20}, Item{"a9", 5, 10}, Item{"a10", 5, 5000},
              Item{"big", 100, 100}, Item{"small", 1, 1000}})
            age(size < 0 ? f.tree.folder(name) : f.tree.file(name, std::string(size, 'x')),
                std::chrono::seconds(seconds));
        auto pane = f.listed();
        pane->setSort(FileSort(sort));
        pane->setAscending(ascending);
        QCOMPARE(namesOf(pane->visible()), expected);
        for (int row = 0; row < pane->visibleCount(); ++row)
            QCOMPARE(pane->visibleIndexOf(pane->visibleAt(row).url()), std::optional(row));
    }

    void aLargeFolderIsOrderedAsASmallOneIs()
    {
        // Large listings are examined in two parts that are merged afterwards.
        PaneFixture f;
        QStringList folders, files;
        for (int i = 0; i < 5000; ++i) {
            const int n = (i * 7919) % 5000; // created out of name order
            if (n % 500 == 0)
                f.tree.folder("d" + std::to_string(n));
            else
                f.tree.file("F" + std::to_string(n));
        }
        for (int n = 0; n < 5000; ++n)
            (n % 500 == 0 ? folders : files).append(QString(n % 500 == 0 ? "d%1" : "F%1").arg(n));
        auto pane = f.listed();
        QCOMPARE(namesOf(pane->entries()), folders + files);
    }

    void filter_data()
    {
        QTest::addColumn<QString>("filter");
        QTest::addColumn<QStringList>("expected");
        const auto u = [](const char *bytes) { return QString::fromUtf8(bytes); };
        QTest::newRow("ignores case, not the path") << "DOC" << QStringList{"Docs", "readme.docx"};
        QTest::newRow("folds beyond ASCII") << u("école") << QStringList{u("ÉCOLE.txt")};
        QTest::newRow("ASCII inside a wider name") << "cole" << QStringList{u("ÉCOLE.txt")};
        QTest::newRow("containment, not collation") << "STRASSE" << QStringList{};
        QTest::newRow("capital sharp s") << u("STRAẞE") << QStringList{u("straße")};
        QTest::newRow("Kelvin sign") << "KEL" << QStringList{u("\u212Aelvin")};
        QTest::newRow("not UTF-8") << "KIL" << QStringList{u("\xffkiln")};
    }
    void filter()
    {
        QFETCH(QString, filter);
        QFETCH(QStringList, expected);
        PaneFixture f;
        const fs::path folder = f.tree.folder("documents-here/Docs").parent_path();
        for (const char *name :
             {"readme.docx", "notes.txt", "ÉCOLE.txt", "straße", "\u212Aelvin", "\xffkiln"})
            f.tree.file(folder / name);
        auto pane = f.pane(folder);
        QVERIFY(settled(*pane));
        pane->setFilter(filter);
        QCOMPARE(namesOf(pane->visible()), expected);
    }

    void tagsAndCursorFollowTheVisibleListAndStopAtItsEnds()
    {
        PaneFixture f;
        const fs::path x1 = f.tree.file("x1"), x2 = f.tree.file("x2"), x3 = f.tree.file("x3"),
                       y = f.tree.file("y");
        auto pane = f.listed();
        pane->setSelection({y, x1});
        pane->setAscending(false);
        QCOMPARE(pane->selected(), (Folders{y, x1}));
        pane->setAscending(true);
        pane->setFilter("x");
        QCOMPARE(pane->selected(), Folders{x1}); // y is hidden by the filter, still tagged
        pane->setSelection({});
        pane->setCursor(y);
        QVERIFY(pane->selected().empty()); // the cursor's item is filtered out
        pane->toggleTagAndAdvance();
        QCOMPARE(pane->cursor(), Cursor(x2));
        pane->setCursor(y);
        pane->moveCursor(-1);
        QCOMPARE(pane->cursor(), Cursor(x3));
        pane->setFilter("none of them"); // nothing visible: nothing to move to or tag
        pane->moveCursor(1, true);
        pane->toggleTagAndAdvance();
        pane->setFilter({});
        QCOMPARE(pane->selection(), std::set<fs::path>{x1});
        pane->moveCursor(10, true); // tags only the item reached
        QCOMPARE(pane->selection(), (std::set<fs::path>{x1, y}));
        pane->toggleTagAndAdvance(); // on the last item: no further to go
        QCOMPARE(pane->cursor(), Cursor(y));
        QCOMPARE(pane->selection(), std::set<fs::path>{x1});
    }

    void restoringFromTheStore_data()
    {
        QTest::addColumn<QByteArray>("stored"); // "@/" stands for the test's folder
        QTest::addColumn<QString>("shown");
        const QByteArray tabs = "left.tabs=@/a, @/b, @/c\n";
        QTest::newRow("last folder over the index") << tabs + "left.lastDirectory=@/b\nleft.tabIndex=0\n"
                                                    << "b";
        QTest::newRow("index beyond the tabs") << tabs + "left.tabIndex=7\n"
                                               << "c";
        QTest::newRow("garbage") << QByteArray(
                                        "left.tabs=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x3)\n"
                                        "left.tabIndex=@Rect(1 2 3 4)\nleft.sort=size\nleft.ascending=no\n"
                                        "left.hidden=yes\nleft.favourites=relative, also relative\n"
                                        "\xff\xfe\x01garbage[[\n")
                                 << "";
    }
    void restoringFromTheStore()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, shown);
        PaneFixture f;
        for (const char *name : {"a", "b", "c"})
            f.tree.folder(name);
        std::ofstream(f.preferences.fileName().toStdString(), std::ios::binary)
            << "[General]\n" + stored.replace("@/", text(f.tree.root()).toUtf8() + "/").toStdString();
        Preferences restored(f.preferences.fileName());
        PaneModel pane(f.tree.root(), "left", PaneModelOptions{&restored, 3'600'000, {}});
        QCOMPARE(pane.directory(), shown.isEmpty() ? f.tree.root() : f.tree / shown.toStdString());
        QCOMPARE(pane.sort(), FileSort::name);
        QVERIFY(pane.ascending() && !pane.showHidden() && pane.favourites().empty());
        QVERIFY(settled(pane) && !pane.error());
    }

    void everyChangeIsPersistedAndRestored()
    {
        PaneFixture f;
        const fs::path zeta = f.tree.folder("b/zeta"), alpha = f.tree.folder("c/alpha");
        {
            auto pane = f.pane(zeta, "left");
            pane->toggleFavourite();
            pane->newTab();
            pane->navigate(alpha);
            pane->toggleFavourite();
            pane->toggleFavourite();
            QCOMPARE(pane->favourites(), Folders{zeta});
            pane->toggleFavourite(); // favourites go by name, not by path
            pane->setSort(FileSort::size);
            pane->setAscending(false);
            pane->setShowHidden(true);
            pane->setFilter("not persisted");
            QVERIFY(settled(*pane));
        }
        QCOMPARE(f.reread().text("left.sort"), QString("Size"));
        auto again = f.pane(f.tree.root(), "left");
        QCOMPARE(again->tabs(), (Folders{zeta, alpha}));
        QCOMPARE(again->directory(), alpha);
        QCOMPARE(again->sort(), FileSort::size);
        QVERIFY(!again->ascending() && again->showHidden() && again->filter().isEmpty());
        QCOMPARE(again->favourites(), (Folders{alpha, zeta}));
    }

    void tabsOpenOnTheSameListingCloseToTheNeighbourAndRelistWhenChosen()
    {
        PaneFixture f;
        const fs::path item = f.tree.file("item"), b = f.tree.folder("b"), c = f.tree.folder("c");
        auto pane = f.listed("left");
        pane->setFilter("it");
        pane->toggleTagAndAdvance();
        pane->newTab(); // shows the same listing as it was, filter and tags included
        QCOMPARE(pane->tabIndex(), 1);
        QVERIFY(!pane->loading() && pane->filter() == "it" && pane->isTagged(item));
        pane->selectTab(1); // the same tab again: listed afresh
        QVERIFY(pane->filter().isEmpty() && pane->selection().empty() && !pane->cursor() && pane->loading());
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), Cursor(b)); // the first entry
        pane->navigate(b);
        pane->newTab();
        pane->navigate(c);
        pane->selectTab(1);
        pane->closeTab(); // the middle one: the following tab becomes active
        QCOMPARE(pane->tabs(), (Folders{f.tree.root(), c}));
        QCOMPARE(pane->directory(), c);
        pane->closeTab(); // the last one: the new last becomes active
        pane->closeTab(); // the only one stays
        QCOMPARE(f.reread().stringList("left.tabs"), QStringList{text(f.tree.root())});
        QCOMPARE(f.reread().text("left.lastDirectory"), text(f.tree.root()));
    }
};

QTEST_GUILESS_MAIN(PaneModelTest)
#include "tst_panemodel.moc"
