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
        const fs::path tree = root.folder("documents-here"); // the path holds "doc", names must not match by it
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
                    pane->visibleIndexOf(visible[static_cast<std::size_t>(row)].url) != row)
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
        const fs::path x1 = tree.file("x1"), x2 = tree.file("x2"), x3 = tree.file("x3"), hidden = tree.file("y");
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

    // ---- listing and refresh

    void refreshDropsTagsOfVanishedItemsAndMovesTheCursorToTheFirstEntry()
    {
        TestTree tree;
        const fs::path folder = tree.folder("zfolder");
        const fs::path keep = tree.file("keep"), gone = tree.file("gone");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setSelection({keep, gone});
        pane->setCursor(gone);
        pane->setAscending(false); // the cursor falls back to the listing order, not the visible one
        fs::remove(gone);
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        pane->refresh();
        QVERIFY(applied.wait());
        QCOMPARE(pane->selection(), std::set<fs::path>{keep});
        QCOMPARE(pane->cursor(), std::optional<fs::path>(folder));
    }

    void anUnchangedFolderPublishesNothing()
    {
        TestTree tree;
        const fs::path file = tree.file("file", "1");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QSignalSpy entriesSpy(pane.get(), &PaneModel::entriesChanged);
        QSignalSpy visibleSpy(pane.get(), &PaneModel::visibleChanged);
        QSignalSpy cursorSpy(pane.get(), &PaneModel::cursorChanged);
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        pane->refresh();
        QVERIFY(applied.wait());
        QCOMPARE(entriesSpy.count() + visibleSpy.count() + cursorSpy.count(), 0);

        std::ofstream(file, std::ios::app) << "grown"; // a size change only
        pane->refresh();
        QVERIFY(applied.wait());
        QCOMPARE(entriesSpy.count(), 1);
        QCOMPARE(visibleSpy.count(), 1);
        QCOMPARE(pane->entries()[0].size, 6);
    }

    void twoQuickRefreshesApplyOnlyTheSecond()
    {
        TestTree tree;
        for (int i = 0; i < 2000; ++i)
            tree.file("item" + std::to_string(i));
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        QSignalSpy loadingSpy(pane.get(), &PaneModel::loadingChanged);
        pane->refresh();
        std::ofstream(tree / "item0", std::ios::app) << "seen only by the second listing";
        pane->refresh();
        QVERIFY(pane->loading());
        QVERIFY(applied.wait());
        QVERIFY(!pane->loading());
        QVERIFY(!applied.wait(300));
        QCOMPARE(applied.count(), 1);
        QCOMPARE(loadingSpy.count(), 2); // on, then off once
        QCOMPARE(pane->entries().at(0).size, 31);
    }

    void hiddenItemsFollowShowHidden()
    {
        TestTree tree;
        const fs::path dot = tree.file(".hidden");
        tree.folder(".config");
        const fs::path plain = tree.file("plain");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QCOMPARE(namesOf(pane->entries()), QStringList{"plain"});
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        pane->setShowHidden(true);
        QVERIFY(applied.wait());
        QCOMPARE(namesOf(pane->entries()), (QStringList{".config", ".hidden", "plain"}));
        pane->setSelection({dot, plain});
        pane->setShowHidden(false);
        QVERIFY(applied.wait());
        QCOMPARE(namesOf(pane->entries()), QStringList{"plain"});
        QCOMPARE(pane->selection(), std::set<fs::path>{plain});
    }

    void symbolicLinksListAsWhatTheyLeadTo()
    {
        TestTree tree;
        const fs::path target = tree.folder("target");
        tree.file("target/inside", "abc");
        tree.file("data", "12345");
        tree.symlink("folder-link", target);
        tree.symlink("file-link", tree / "data");
        tree.symlink("dangling", tree / "nowhere");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QCOMPARE(namesOf(pane->entries()), (QStringList{"folder-link", "target", "dangling", "data", "file-link"}));
        QCOMPARE(pane->entries()[0].url, tree / "folder-link"); // not resolved
        QCOMPARE(pane->entries()[4].size, 5);
        pane->navigate(tree / "folder-link");
        QVERIFY(settled(*pane));
        QCOMPARE(pane->directory(), tree / "folder-link");
        QCOMPARE(namesOf(pane->entries()), QStringList{"inside"});
    }

    void entriesCarryTheFileFacts()
    {
        TestTree tree;
        const fs::path file = tree.file("facts", "0123456789");
        touch(file, std::chrono::seconds(3600));
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        const FileEntry &entry = pane->entries().at(0);
        QCOMPARE(entry.url, file);
        QVERIFY(!entry.directory);
        QCOMPARE(entry.size, 10);
        struct stat st;
        QCOMPARE(::stat(file.c_str(), &st), 0);
        const auto expected = std::chrono::seconds(st.st_mtim.tv_sec) + std::chrono::nanoseconds(st.st_mtim.tv_nsec);
        QCOMPARE(entry.modified.time_since_epoch(), std::chrono::duration_cast<FileEntry::Time::duration>(expected));
    }

    // ---- awkward names

    void namesThatAreNotUtf8ListAndStaySelectableAndNavigable()
    {
        TestTree tree;
        const fs::path file = tree.file(std::string("r\xe9sum\xe9.txt"), "x");
        const fs::path folder = tree.folder(std::string("\xff\xfe-folder"));
        const fs::path inner = tree.file(folder / "inner");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QCOMPARE(pane->entries().size(), std::size_t(2));
        QCOMPARE(pane->entries()[0].url, folder);
        QCOMPARE(pane->entries()[1].url, file);
        QVERIFY(displayName(file).contains(QChar(0xFFFD)));
        pane->setCursor(file);
        pane->toggleTagAndAdvance();
        QCOMPARE(pane->selected(), std::vector<fs::path>{file});
        pane->setFilter(QString(QChar(0xFFFD)));
        QCOMPARE(pane->visible().size(), std::size_t(2));
        pane->navigate(folder);
        QVERIFY(settled(*pane));
        QVERIFY(!pane->error());
        QCOMPARE(pane->directory(), folder);
        QCOMPARE(pane->cursor(), std::optional<fs::path>(inner));
        pane->navigate(pane->directory() / "..");
        QVERIFY(settled(*pane));
        QCOMPARE(pane->directory(), tree.root());
    }

    void namesHoldingLineFeedsList()
    {
        TestTree tree;
        const fs::path odd = tree.file("two\nlines");
        const fs::path folder = tree.folder("folder\nbreak");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        QCOMPARE(pane->entries().size(), std::size_t(2));
        pane->setFilter("\nl");
        QCOMPARE(pane->selected(), std::vector<fs::path>{}); // cursor sits on the folder, which is filtered out
        pane->setSelection({odd});
        QCOMPARE(pane->selected(), std::vector<fs::path>{odd});
        pane->navigate(folder);
        QVERIFY(settled(*pane));
        QVERIFY(!pane->error());
        QCOMPARE(pane->path(), QString::fromUtf8(folder.c_str()));
    }

    // ---- navigation and failures

    void navigateStandardizesAndResetsTheView()
    {
        TestTree tree;
        const fs::path sub = tree.folder("sub");
        tree.file("sub/x");
        const fs::path other = tree.folder("other");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setFilter("s");
        pane->setSelection({sub});
        QSignalSpy directorySpy(pane.get(), &PaneModel::directoryChanged);
        pane->navigate(other / ".." / "." / "sub" / "");
        QCOMPARE(pane->directory(), sub);
        QCOMPARE(pane->path(), QString::fromStdString(sub.string()));
        QCOMPARE(pane->tabs(), std::vector<fs::path>{sub});
        QVERIFY(pane->filter().isEmpty());
        QVERIFY(pane->selection().empty());
        QVERIFY(!pane->cursor());
        QCOMPARE(directorySpy.count(), 1);
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), std::optional<fs::path>(sub / "x"));
        pane->navigate(fs::path("/.."));
        QCOMPARE(pane->directory(), fs::path("/"));
    }

    void aMissingFolderShowsTheSystemErrorUntilLeft()
    {
        TestTree tree;
        tree.file("present");
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        pane->setSelection({tree / "present"});
        const fs::path missing = tree / "missing";
        pane->navigate(missing);
        QVERIFY(settled(*pane, false));
        QVERIFY(pane->error());
        QVERIFY2(pane->error()->contains("No such file or directory"), qPrintable(*pane->error()));
        QVERIFY(pane->error()->contains(QString::fromUtf8("‘missing’")));
        QCOMPARE(pane->directory(), missing);
        QCOMPARE(pane->path(), QString::fromStdString(missing.string()));
        QVERIFY(pane->entries().empty() && pane->visible().empty() && !pane->cursor());

        QSignalSpy errorSpy(pane.get(), &PaneModel::errorChanged);
        pane->navigate(tree.root());
        QVERIFY(settled(*pane));
        QVERIFY(!pane->error());
        QCOMPARE(errorSpy.count(), 1);
    }

    void aFileGivenAsFolderFails()
    {
        TestTree tree;
        const fs::path file = tree.file("plain.txt", "text");
        PaneFixture fixture;
        auto pane = fixture.pane(file);
        QVERIFY(settled(*pane, false));
        QVERIFY(pane->error());
        QVERIFY2(pane->error()->contains("Not a directory"), qPrintable(*pane->error()));
        QVERIFY(pane->entries().empty());
    }

    void aFolderDeletedWhileShownTurnsIntoAnError()
    {
        TestTree tree;
        const fs::path shown = tree.folder("shown");
        tree.file("shown/a");
        tree.file("shown/b");
        PaneFixture fixture;
        auto pane = fixture.pane(shown);
        QVERIFY(settled(*pane));
        pane->setSelection({shown / "a"});
        fs::remove_all(shown); // nobody calls refresh: the watcher notices
        QTRY_VERIFY_WITH_TIMEOUT(pane->error().has_value(), 5000);
        QVERIFY(pane->error()->contains("No such file or directory"));
        QVERIFY(pane->entries().empty() && pane->selection().empty() && !pane->cursor());
        QCOMPARE(pane->directory(), shown);
    }

    void theWatcherReloadsAfterAnOutsideChange()
    {
        TestTree tree;
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root());
        QVERIFY(settled(*pane));
        tree.file("arrived");
        QTRY_COMPARE_WITH_TIMEOUT(namesOf(pane->entries()), QStringList{"arrived"}, 5000);
    }

    // ---- the metadata timer

    void theMetadataTimerCatchesSizeChangesWhileActive()
    {
        TestTree tree;
        const fs::path file = tree.file("growing", "1");
        bool active = true;
        PaneFixture fixture;
        auto pane = fixture.pane(tree.root(), {}, 50, [&] { return active; });
        QVERIFY(settled(*pane));
        std::ofstream(file, std::ios::app) << "23"; // the watcher does not see content writes
        QTRY_COMPARE_WITH_TIMEOUT(pane->entries().at(0).size, 3, 5000);

        active = false;
        QTest::qWait(100); // let a refresh already started finish
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        std::ofstream(file, std::ios::app) << "45";
        QVERIFY(!applied.wait(400));
        QCOMPARE(pane->entries().at(0).size, 3);
    }

    void destroyingAPaneWhileItListsIsSafe()
    {
        TestTree tree;
        for (int i = 0; i < 3000; ++i)
            tree.file("n" + std::to_string(i));
        PaneFixture fixture;
        for (int i = 0; i < 5; ++i) {
            auto pane = fixture.pane(tree.root());
            pane->refresh();
        }
        auto survivor = fixture.pane(tree.root());
        QVERIFY(settled(*survivor));
        QCOMPARE(survivor->entries().size(), std::size_t(3000));
    }
};

QTEST_GUILESS_MAIN(PaneModelTest)
#include "tst_panemodel.moc"
