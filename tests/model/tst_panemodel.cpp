#include "panefixture.h"

#include <QSignalSpy>
#include <fstream>
#include <sys/stat.h>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;
using Cursor = std::optional<fs::path>;
using Folders = std::vector<fs::path>;

// Order, filter, cursor and tags over listed folders; tabs and what a pane keeps.
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
        for (int row = 0; row < pane->visibleCount(); ++row) // rows and their index agree
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
        auto pane = f.listed(folder);
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

    // Going up lands on the folder one came from, level by level up to the
    // root; any other folder starts on its first item.
    void goingUpPutsTheCursorOnTheFolderOneCameFrom()
    {
        PaneFixture f;
        const fs::path m = f.tree.folder("m"), deep = f.tree.folder("m/n/o"),
                       first = f.tree.folder("m/a-first");
        auto pane = f.listed(deep);
        const auto up = [&] {
            pane->goUp();
            return settled(*pane);
        };
        QVERIFY(up());
        QCOMPARE(pane->cursor(), Cursor(deep));
        QVERIFY(up());
        QCOMPARE(pane->cursor(), Cursor(m / "n"));
        QVERIFY(up());
        QCOMPARE(pane->cursor(), Cursor(m));
        pane->navigate(m); // not from below
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), Cursor(first));
        pane->navigate(deep);
        QVERIFY(settled(*pane));
        while (pane->directory() != "/")
            QVERIFY(up());
        QCOMPARE(pane->cursor(), Cursor("/" / *std::next(deep.begin())));
    }

    void revealPutsTheCursorOnTheItemOnceItsFolderIsListed()
    {
        PaneFixture f;
        const fs::path first = f.tree.file("deep/a"), last = f.tree.file("deep/z"),
                       hidden = f.tree.file("deep/.h");
        auto pane = f.listed();
        pane->setFilter("d");
        QSignalSpy moved(pane.get(), &PaneModel::cursorChanged);
        pane->reveal(f.tree / "deep/./z");
        // Heard when its row is there, so that a view can scroll to it.
        QTRY_VERIFY(!moved.isEmpty() && pane->cursor() == Cursor(last) && pane->visibleIndexOf(last));
        QCOMPARE(pane->directory(), f.tree / "deep");
        QCOMPARE(pane->filter(), QString());
        QVERIFY(settled(*pane));

        pane->reveal(hidden); // not listed: the cursor starts at the top as after navigate
        QVERIFY(settled(*pane));
        QTRY_COMPARE(pane->cursor(), Cursor(first));
        pane->reveal(last);
        pane->navigate(f.tree.root()); // a later navigation wins
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), Cursor(f.tree / "deep"));
    }

    void restoringFromTheStore_data()
    {
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QByteArray>("stored"); // "@/" stands for the test's folder
        const QByteArray tabs = "left.tabs=@/a, @/b, @/c\n";
        const QByteArray garbage =
            "left.tabs=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x3)\nleft.tabIndex=@Rect(1 2 3 4)\n"
            "left.sort=size\nleft.ascending=no\nleft.hidden=yes\n"
            "left.favourites=@Rect(1 2 3 4)\n\xff\xfe\x01garbage[[\n";
        QTest::newRow("last folder over the index")
            << QString("b") << tabs + "left.lastDirectory=@/b\nleft.tabIndex=0\n";
        QTest::newRow("index beyond the tabs") << QString("c") << tabs + "left.tabIndex=7\n";
        QTest::newRow("garbage") << QString() << garbage;
    }
    void restoringFromTheStore()
    {
        QFETCH(QString, shown);
        QFETCH(QByteArray, stored);
        PaneFixture f;
        for (const char *name : {"a", "b", "c"})
            f.tree.folder(name);
        std::ofstream(f.preferences.fileName().toStdString(), std::ios::binary)
            << "[General]\n" + stored.replace("@/", f.text(f.tree.root()).toUtf8() + "/").toStdString();
        Preferences restored(f.preferences.fileName());
        PaneModel pane(f.tree.root(), "left", PaneModelOptions{&restored, 3'600'000, {}});
        QCOMPARE(pane.directory(), shown.isEmpty() ? f.tree.root() : f.tree / shown.toStdString());
        QCOMPARE(pane.sort(), FileSort::name);
        QVERIFY(pane.ascending() && !pane.showHidden() && pane.favourites().empty());
        QVERIFY(settled(pane) && !pane.error());
    }

    // As typed paths: relative ones from the working folder, trailing separators dropped.
    void storedPathsAreMadeFoldersBeforeTheyAreCompared()
    {
        PaneFixture f;
        for (const char *name : {"a", "b", "c"})
            f.tree.folder(name);
        const QString root = f.text(f.tree.root());
        std::ofstream(f.preferences.fileName().toStdString(), std::ios::binary)
            << ("[General]\nleft.tabs=" + root + "/a, " + root + "/b/, c\nleft.lastDirectory=" + root +
                "/b\nleft.tabIndex=0\nleft.favourites=c, " + root + "//a/./\n")
                   .toStdString();
        const fs::path working = fs::current_path();
        fs::current_path(f.tree.root());
        Preferences restored(f.preferences.fileName());
        PaneModel pane(f.tree.root(), "left", PaneModelOptions{&restored, 3'600'000, {}});
        fs::current_path(working);
        QCOMPARE(pane.tabs(), (Folders{f.tree / "a", f.tree / "b", f.tree / "c"}));
        QCOMPARE(pane.directory(), f.tree / "b");
        QCOMPARE(pane.favourites(), (Folders{f.tree / "a", f.tree / "c"}));
    }

    void foldersThatAreNotUtf8ComeBackByteForByte()
    {
        PaneFixture f;
        const fs::path odd = f.tree.folder("caf\xe9"), plain = f.tree.folder("café");
        {
            auto pane = f.listed({}, "left");
            pane->navigate(plain);
            pane->toggleFavourite();
            pane->newTab();
            pane->navigate(odd);
            pane->toggleFavourite();
        }
        std::ifstream file(f.preferences.fileName().toStdString(), std::ios::binary);
        const std::string stored((std::istreambuf_iterator<char>(file)), {});
        QVERIFY2(stored.find(plain.string()) != std::string::npos, stored.c_str());
        Preferences reread = f.reread();
        PaneModel pane(f.tree.root(), "left", PaneModelOptions{&reread, 3'600'000, {}});
        QCOMPARE(pane.tabs(), (Folders{plain, odd}));
        QCOMPARE(pane.directory(), odd);
        QCOMPARE(pane.favourites().size(), std::size_t(2));
        QVERIFY(settled(pane) && !pane.error());
        // One odd folder alone in a list is stored readably too.
        reread.setPathList("single", {odd});
        reread.sync();
        QCOMPARE(f.reread().pathList("single"), Folders{odd});
        // An emptied list leaves nothing a person reading the file would wonder about.
        reread.setPathList("single", {});
        reread.sync();
        QVERIFY(!f.reread().contains("single") && f.reread().pathList("single").empty());
    }

    void tabsAndSettingsArePersistedAndRestored()
    {
        PaneFixture f;
        const fs::path item = f.tree.file("item"), zeta = f.tree.folder("b/zeta"),
                       alpha = f.tree.folder("c/alpha");
        {
            auto pane = f.listed({}, "left");
            pane->setFilter("it");
            pane->toggleTagAndAdvance();
            pane->newTab(); // shows the same listing as it was, filter and tags included
            QVERIFY(!pane->loading() && pane->filter() == "it" && pane->isTagged(item));
            pane->selectTab(1); // the same tab again: listed afresh
            QVERIFY(pane->filter().isEmpty() && pane->selection().empty() && pane->loading());
            pane->navigate(zeta);
            pane->toggleFavourite();
            pane->newTab();
            pane->navigate(alpha);
            pane->toggleFavourite(); // favourites go by name, not by path
            pane->selectTab(1);
            pane->closeTab(); // the middle one: the following tab becomes active
            QCOMPARE(pane->directory(), alpha);
            pane->setSort(FileSort::size);
            pane->setAscending(false);
            pane->setShowHidden(true);
            QVERIFY(settled(*pane));
        }
        QCOMPARE(f.reread().text("left.sort"), QString("Size"));
        auto again = f.pane(f.tree.root(), "left");
        QCOMPARE(again->tabs(), (Folders{f.tree.root(), alpha}));
        QCOMPARE(again->directory(), alpha);
        QCOMPARE(again->sort(), FileSort::size);
        QVERIFY(!again->ascending() && again->showHidden());
        QCOMPARE(again->favourites(), (Folders{alpha, zeta}));
    }
    // Counted sizes stay through a refresh of the folder (the watcher's and the
    // timer's) for the folders still listed; reload and leaving forget them.
    void countedFolderSizesLastUntilReloadOrLeaving()
    {
        PaneFixture f;
        const fs::path sub = f.tree.file("sub/a", std::string(3000, 'x')).parent_path(),
                       other = f.tree.folder("other"), file = f.tree.file("file", std::string(20, 'x'));
        auto pane = f.listed();
        const auto counted = [&](const fs::path &folder) {
            pane->folderSizes().count({folder});
            if (!QTest::qWaitFor([&] { return !pane->folderSizes().counting(); }))
                return std::int64_t(-1);
            return pane->folderSizes().find(folder)->bytes;
        };
        const auto tagged = [&] {
            const PaneModel::TaggedSize total = pane->taggedSize();
            return std::pair(total.bytes, total.lowerBound);
        };
        pane->setSelection({sub, other, file});
        QCOMPARE(tagged(), std::pair(std::int64_t(20), true)); // folders not counted: a lower bound
        const std::int64_t subBytes = counted(sub);
        struct stat own {};
        QCOMPARE(::stat(sub.c_str(), &own), 0);
        QCOMPARE(subBytes, 3000 + own.st_size); // the folder itself counts, as with du
        const std::int64_t otherBytes = counted(other);
        QCOMPARE(tagged(), std::pair(20 + subBytes + otherBytes, false));

        fs::remove(other);
        f.tree.file("new");
        pane->refresh();
        QTRY_VERIFY(!pane->folderSizes().find(other));
        QVERIFY(pane->folderSizes().find(sub));
        pane->reload();
        QVERIFY(!pane->folderSizes().find(sub));
        counted(sub);
        pane->navigate(sub);
        QVERIFY(!pane->folderSizes().find(sub));
    }

    // A size change inside a file is not a folder event: only the timer sees it.
    void theMetadataTimerRefreshesOnlyWhileTheApplicationIsActive()
    {
        PaneFixture fixture;
        const fs::path file = fixture.tree.file("grows.txt", "1");
        bool active = false;
        PaneModel pane(fixture.tree.root(), {},
                       PaneModelOptions{&fixture.preferences, 50, [&] { return active; }});
        QVERIFY(settled(pane));
        std::ofstream(file, std::ios::app) << "23";
        QTest::qWait(300);
        QCOMPARE(pane.entries().front().size, 1);
        active = true;
        QTRY_COMPARE_WITH_TIMEOUT(pane.entries().front().size, 3, 2000);
    }
};

QTEST_GUILESS_MAIN(PaneModelTest)
#include "tst_panemodel.moc"
