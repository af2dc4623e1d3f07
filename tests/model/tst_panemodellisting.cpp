#include "panefixture.h"
#include "platform/core/displaytext.h"

#include <QSignalSpy>
#include <QTest>
#include <fstream>
#include <sys/stat.h>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

class PaneModelListingTest : public QObject {
    Q_OBJECT

private:
    static void touch(const fs::path &path, std::chrono::seconds age)
    {
        fs::last_write_time(path, fs::file_time_type::clock::now() - age);
    }

private Q_SLOTS:
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

        touch(file, std::chrono::seconds(7200)); // a date change only
        pane->refresh();
        QVERIFY(applied.wait());
        QCOMPARE(entriesSpy.count(), 2);

        fs::rename(file, tree / "renamed"); // same count, same facts, another name
        pane->refresh();
        QVERIFY(applied.wait());
        QCOMPARE(entriesSpy.count(), 3);
        QCOMPARE(namesOf(pane->entries()), QStringList{"renamed"});
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
        QCOMPARE(namesOf(pane->entries()),
                 (QStringList{"folder-link", "target", "dangling", "data", "file-link"}));
        QCOMPARE(pane->entries()[0].url(), tree / "folder-link"); // not resolved
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
        QCOMPARE(entry.url(), file);
        QVERIFY(!entry.directory);
        QCOMPARE(entry.size, 10);
        struct stat st;
        QCOMPARE(::stat(file.c_str(), &st), 0);
        const auto expected =
            std::chrono::seconds(st.st_mtim.tv_sec) + std::chrono::nanoseconds(st.st_mtim.tv_nsec);
        QCOMPARE(entry.modified.time_since_epoch(),
                 std::chrono::duration_cast<FileEntry::Time::duration>(expected));
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
        QCOMPARE(pane->entries()[0].url(), folder);
        QCOMPARE(pane->entries()[1].url(), file);
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
        QCOMPARE(pane->selected(),
                 std::vector<fs::path>{}); // cursor sits on the folder, which is filtered out
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

    void theRootFolderListsItsItemsWithOneSeparator()
    {
        PaneFixture fixture;
        auto pane = fixture.pane("/");
        QVERIFY(settled(*pane));
        const std::optional<int> row = pane->visibleIndexOf("/tmp");
        QVERIFY(row);
        QCOMPARE(pane->visibleAt(*row).url(), fs::path("/tmp"));
        QVERIFY(!pane->visibleIndexOf("//tmp"));
        pane->setCursor(fs::path("/tmp"));
        pane->toggleTagAndAdvance();
        QCOMPARE(pane->selected(), std::vector<fs::path>{"/tmp"});
    }

    void aFolderHoldingTheSameNamesAndFactsAsTheLastOneListsItsOwnItems()
    {
        TestTree tree;
        const auto stamp = fs::file_time_type::clock::now() - std::chrono::hours(1);
        for (const char *folder : {"a", "b"}) {
            fs::last_write_time(tree.file(fs::path(folder) / "same", "12"), stamp);
            fs::last_write_time(tree.folder(fs::path(folder) / "inner"), stamp);
        }
        PaneFixture fixture;
        auto pane = fixture.pane(tree / "a");
        QVERIFY(settled(*pane));
        pane->navigate(tree / "b");
        QVERIFY(settled(*pane));
        QCOMPARE(pane->entries().size(), std::size_t(2));
        QCOMPARE(pane->entries()[0].url(), tree / "b/inner");
        QCOMPARE(pane->entries()[1].url(), tree / "b/same");
        QCOMPARE(pane->cursor(), std::optional<fs::path>(tree / "b/inner"));
        QVERIFY(pane->visibleIndexOf(tree / "b/same"));
        QVERIFY(!pane->visibleIndexOf(tree / "a/same"));
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
        QTRY_VERIFY(!pane->loading()); // a refresh started while active may still finish
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

QTEST_GUILESS_MAIN(PaneModelListingTest)
#include "tst_panemodellisting.moc"
