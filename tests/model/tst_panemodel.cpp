#include "panefixture.h"
#include "platform/core/displaytext.h"

#include <QSignalSpy>
#include <QTest>
#include <fstream>
#include <sys/stat.h>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

class PaneModelTest : public QObject {
    Q_OBJECT

private:
    static void touch(const fs::path &path, std::chrono::seconds age)
    {
        fs::last_write_time(path, fs::file_time_type::clock::now() - age);
    }

private Q_SLOTS:
    // ---- order

    void foldersComeFirstAndNumbersCompareByValue()
    {
        TestTree tree;
        tree.folder("b");
        tree.folder("A");
        tree.file("a10");
        tree.file("a9");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QCOMPARE(namesOf(pane->entries()), (QStringList{"A", "b", "a9", "a10"}));
        QCOMPARE(namesOf(pane->visible()), (QStringList{"A", "b", "a9", "a10"}));
        QSignalSpy visibleSpy(pane.get(), &PaneModel::visibleChanged);
        pane->setAscending(false);
        QCOMPARE(visibleSpy.count(), 1);
        QCOMPARE(namesOf(pane->visible()), (QStringList{"b", "A", "a10", "a9"}));
        QCOMPARE(namesOf(pane->entries()), (QStringList{"A", "b", "a9", "a10"}));
        QVERIFY(pane->entries()[0].directory);
    }

    void sizeOrderBreaksTiesByNameInTheSameDirection()
    {
        TestTree tree;
        tree.file("b-same", "12345");
        tree.file("a-same", "12345");
        tree.file("big", std::string(100, 'x'));
        tree.file("small", "1");
        tree.folder("folder");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setSort(FileSort::size);
        QCOMPARE(namesOf(pane->visible()), (QStringList{"folder", "small", "a-same", "b-same", "big"}));
        pane->setAscending(false);
        QCOMPARE(namesOf(pane->visible()), (QStringList{"folder", "big", "b-same", "a-same", "small"}));
        QCOMPARE(pane->entries()[0].size, 0);
    }

    void modifiedOrderUsesTheDate()
    {
        TestTree tree;
        touch(tree.file("new"), std::chrono::seconds(10));
        touch(tree.file("old"), std::chrono::seconds(5000));
        touch(tree.file("middle"), std::chrono::seconds(100));
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setSort(FileSort::modified);
        QCOMPARE(namesOf(pane->visible()), (QStringList{"old", "middle", "new"}));
        pane->setAscending(false);
        QCOMPARE(namesOf(pane->visible()), (QStringList{"new", "middle", "old"}));
    }

    void aLargeFolderIsOrderedAsASmallOneIs()
    {
        // Large listings are examined in two parts that are merged afterwards.
        TestTree tree;
        QStringList expectedFolders, expectedFiles;
        for (int i = 0; i < 5000; ++i) {
            const std::string name = std::to_string((i * 7919) % 5000);
            if (i % 500 == 0)
                tree.folder("d" + name);
            else
                tree.file("F" + name, std::string(static_cast<std::size_t>(i % 3), 'x'));
        }
        for (int n = 0; n < 5000; ++n) {
            if (fs::is_directory(tree / ("d" + std::to_string(n))))
                expectedFolders.append(QString("d%1").arg(n));
            else if (fs::exists(tree / ("F" + std::to_string(n))))
                expectedFiles.append(QString("F%1").arg(n));
        }
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QCOMPARE(namesOf(pane->entries()), expectedFolders + expectedFiles);
        pane->setSort(FileSort::size);
        const std::vector<FileEntry> &visible = pane->visible();
        QVERIFY(std::is_sorted(visible.begin() + 10, visible.end(),
                               [](const FileEntry &a, const FileEntry &b) { return a.size < b.size; }));
    }

    void namesEqualButForCaseKeepTheirListingOrder()
    {
        TestTree tree;
        tree.file("readme");
        tree.file("README");
        tree.file("Readme");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        const QStringList listed = namesOf(pane->entries());
        pane->setAscending(false);
        QCOMPARE(namesOf(pane->visible()), listed); // all equal: the stable sort keeps them
    }

    // ---- filter and selected

    void filterMatchesTheNameIgnoringCase()
    {
        TestTree root;
        const fs::path tree =
            root.folder("documents-here"); // the path holds "doc", names must not match by it
        root.file("documents-here/readme.docx");
        root.folder("documents-here/Docs");
        root.file("documents-here/notes.txt");
        root.file("documents-here/has space");
        PaneFixture fixture;
        auto pane = fixture.pane(tree);
        QVERIFY(settled(*pane));
        QSignalSpy visibleSpy(pane.get(), &PaneModel::visibleChanged);
        pane->setFilter("DOC");
        QCOMPARE(namesOf(pane->visible()), (QStringList{"Docs", "readme.docx"}));
        pane->setFilter(" ");
        QCOMPARE(namesOf(pane->visible()), QStringList{"has space"});
        pane->setFilter(" ");
        QCOMPARE(visibleSpy.count(), 2); // setting the same text again changes nothing
        pane->setFilter(QString::fromUtf8("É"));
        QVERIFY(pane->visible().empty());
        pane->setFilter({});
        QCOMPARE(pane->visible().size(), std::size_t(4));
    }

    void filterFoldsCaseBeyondAscii()
    {
        TestTree tree;
        tree.file("ÉCOLE.txt");
        tree.file("straße");
        tree.file("plain");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setFilter(QString::fromUtf8("école"));
        QCOMPARE(namesOf(pane->visible()), QStringList{"ÉCOLE.txt"});
        pane->setFilter(QString::fromUtf8("STRASSE"));
        QCOMPARE(namesOf(pane->visible()), QStringList{}); // containment, not collation equivalence
        pane->setFilter(QString::fromUtf8("STRAẞE"));
        QCOMPARE(namesOf(pane->visible()), QStringList{"straße"});
        pane->setFilter("cole");
        QCOMPARE(namesOf(pane->visible()), QStringList{"ÉCOLE.txt"});
    }

    void filterSeesCharactersThatFoldIntoAscii()
    {
        TestTree tree;
        tree.file("\u212Aelvin");           // KELVIN SIGN
        tree.file("\u017Ftar");             // LONG S
        tree.file(std::string("\xffkiln")); // not UTF-8
        tree.file("other");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setFilter("KEL");
        QCOMPARE(pane->visible().size(), std::size_t(1));
        QCOMPARE(pane->visible()[0].name().native(), std::string("\u212Aelvin"));
        pane->setFilter("st");
        QCOMPARE(pane->visible().size(), std::size_t(1));
        pane->setFilter("KIL");
        QCOMPARE(pane->visible().size(), std::size_t(1));
        QCOMPARE(pane->visible()[0].name().native(), std::string("\xffkiln"));
    }

    void selectedActsOnVisibleTaggedItemsInVisibleOrder()
    {
        TestTree tree;
        const fs::path a = tree.file("alpha"), b = tree.file("beta"), g = tree.file("gamma");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setSelection({g, a});
        QCOMPARE(pane->selected(), (std::vector<fs::path>{a, g}));
        pane->setAscending(false);
        QCOMPARE(pane->selected(), (std::vector<fs::path>{g, a}));
        pane->setFilter("gam");
        QCOMPARE(pane->selected(), std::vector<fs::path>{g});
        QVERIFY(pane->isTagged(a)); // hidden by the filter, still tagged
        pane->setSelection({});
        pane->setCursor(b);
        QVERIFY(pane->selected().empty()); // the cursor's item is filtered out
        pane->setFilter({});
        QCOMPARE(pane->selected(), std::vector<fs::path>{b});
    }

    void rowAccessAgreesWithTheVisibleList()
    {
        TestTree tree;
        tree.folder("dir");
        for (const char *name : {"b1", "a2", "c10", "c9", "x"})
            tree.file(name, name);
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        const auto agree = [&] {
            const std::vector<FileEntry> &visible = pane->visible();
            if (static_cast<int>(visible.size()) != pane->visibleCount())
                return false;
            for (int row = 0; row < pane->visibleCount(); ++row)
                if (!(pane->visibleAt(row) == visible[static_cast<std::size_t>(row)]) ||
                    pane->visibleIndexOf(visible[static_cast<std::size_t>(row)].url()) != row)
                    return false;
            return true;
        };
        QVERIFY(agree());
        pane->setFilter("c");
        QCOMPARE(namesOf(pane->visible()), (QStringList{"c9", "c10"}));
        QVERIFY(agree());
        QCOMPARE(pane->visibleIndexOf(tree / "b1"), std::optional<int>());
        pane->setSort(FileSort::size);
        pane->setAscending(false);
        QVERIFY(agree());
        pane->setFilter({});
        QCOMPARE(namesOf(pane->visible()), (QStringList{"dir", "c10", "c9", "b1", "a2", "x"}));
        QVERIFY(agree());
    }

    // ---- cursor and tags

    void cursorOnAFilteredOutItem()
    {
        TestTree tree;
        const fs::path x1 = tree.file("x1"), x2 = tree.file("x2"), x3 = tree.file("x3"),
                       hidden = tree.file("y");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setFilter("x");
        pane->setCursor(hidden);
        pane->toggleTagAndAdvance();
        QCOMPARE(pane->selection(), std::set<fs::path>{x1});
        QCOMPARE(pane->cursor(), std::optional<fs::path>(x2));

        pane->setCursor(hidden);
        pane->moveCursor(1);
        QCOMPARE(pane->cursor(), std::optional<fs::path>(x1));
        pane->setCursor(hidden);
        pane->moveCursor(-1);
        QCOMPARE(pane->cursor(), std::optional<fs::path>(x3));
        pane->setCursor(std::nullopt);
        pane->moveCursor(-1);
        QCOMPARE(pane->cursor(), std::optional<fs::path>(x3));
    }

    void cursorStopsAtTheEndsAndExtendingTagsOnlyTheItemReached()
    {
        TestTree tree;
        std::vector<fs::path> files;
        for (const char *name : {"f1", "f2", "f3", "f4", "f5"})
            files.push_back(tree.file(name));
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), std::optional<fs::path>(files[0]));
        pane->moveCursor(2);
        pane->moveCursor(-10);
        QCOMPARE(pane->cursor(), std::optional<fs::path>(files[0]));
        QSignalSpy selectionSpy(pane.get(), &PaneModel::selectionChanged);
        pane->moveCursor(10, true);
        QCOMPARE(pane->cursor(), std::optional<fs::path>(files[4]));
        QCOMPARE(pane->selection(), std::set<fs::path>{files[4]});
        pane->moveCursor(1, true); // already tagged: nothing changes
        QCOMPARE(selectionSpy.count(), 1);
        QCOMPARE(pane->visibleIndexOf(files[3]), std::optional<int>(3));
        QCOMPARE(pane->visibleIndexOf(tree / "absent"), std::optional<int>());
    }

    void tagAndAdvanceOnTheLastItemStaysThere()
    {
        TestTree tree;
        tree.file("first");
        const fs::path last = tree.file("last");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setCursor(last);
        pane->toggleTagAndAdvance();
        QCOMPARE(pane->selection(), std::set<fs::path>{last});
        QCOMPARE(pane->cursor(), std::optional<fs::path>(last));
        pane->toggleTagAndAdvance();
        QVERIFY(pane->selection().empty());
    }

    void emptyFolderLeavesCursorAndTagsAlone()
    {
        TestTree tree;
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QVERIFY(!pane->cursor());
        pane->moveCursor(1, true);
        pane->toggleTagAndAdvance();
        QVERIFY(!pane->cursor());
        QVERIFY(pane->selection().empty());
        QVERIFY(pane->selected().empty());
    }
};

QTEST_GUILESS_MAIN(PaneModelTest)
#include "tst_panemodel.moc"
