#include "panefixture.h"

#include <QSignalSpy>
#include <fstream>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;
using Cursor = std::optional<fs::path>;

// Listing real folders: refreshes, awkward names, failures and the watcher.
class PaneModelListingTest : public QObject {
    Q_OBJECT

    static bool relisted(PaneModel &pane)
    {
        QSignalSpy applied(&pane, &PaneModel::listingApplied);
        pane.refresh();
        return applied.wait();
    }

private Q_SLOTS:
    void aRefreshPublishesOnlyWhatChangedAndDropsWhatWent()
    {
        PaneFixture f;
        const fs::path folder = f.tree.folder("zfolder"), keep = f.tree.file("keep", "1"),
                       gone = f.tree.file("gone");
        auto pane = f.listed();
        QSignalSpy entriesSpy(pane.get(), &PaneModel::entriesChanged);
        QVERIFY(relisted(*pane));
        QCOMPARE(entriesSpy.count(), 0);
        std::ofstream(keep, std::ios::app) << "grown"; // a size change only
        QVERIFY(relisted(*pane));
        QCOMPARE(pane->entries().at(2).size, 6);
        age(keep, std::chrono::hours(2)); // a date change only
        QVERIFY(relisted(*pane));
        QCOMPARE(entriesSpy.count(), 2);
        pane->setSelection({keep, gone});
        pane->setCursor(gone);
        fs::rename(gone, f.tree / "went"); // same count, same facts, another name
        QVERIFY(relisted(*pane));
        QCOMPARE(namesOf(pane->entries()), (QStringList{"zfolder", "keep", "went"}));
        QCOMPARE(pane->selection(), std::set<fs::path>{keep});
        QCOMPARE(pane->cursor(), Cursor(folder));
    }

    void overlappingListingsApplyOnlyTheLatestAndMayBeAbandoned()
    {
        PaneFixture f;
        for (int i = 0; i < 2000; ++i)
            f.tree.file("item" + std::to_string(i));
        for (int i = 0; i < 5; ++i)
            f.pane(f.tree.root())->refresh(); // destroyed while it lists
        auto pane = f.listed();
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        pane->refresh();
        std::ofstream(f.tree / "item0", std::ios::app) << "seen only by the second listing";
        pane->refresh();
        QVERIFY(applied.wait() && !applied.wait(300));
        QCOMPARE(pane->entries().at(0).size, 31);
    }

    void oddNamesAndLinksListAndStaySelectableAndNavigable()
    {
        PaneFixture f;
        const fs::path latin = f.tree.file("r\xe9sum\xe9.txt"), folder = f.tree.folder("\xff\xfe-folder"),
                       inner = f.tree.file(folder / "inner"), lines = f.tree.file("two\nlines"),
                       breaking = f.tree.folder("folder\nbreak");
        f.tree.symlink("link", folder);
        f.tree.symlink("dangling", f.tree / "nowhere");
        auto pane = f.listed();
        QVERIFY(namesOf(pane->entries()).first(3).contains("link")); // listed as the folder it leads to
        QCOMPARE(pane->entries().size(), std::size_t(6));            // the dangling link too
        pane->setFilter(QString(QChar(0xFFFD)));
        QCOMPARE(pane->visible().size(), std::size_t(2));
        pane->setCursor(latin);
        pane->toggleTagAndAdvance();
        QCOMPARE(pane->selected(), std::vector<fs::path>{latin});
        pane->setFilter("\nl");
        QCOMPARE(namesOf(pane->visible()), QStringList{"two\nlines"});
        pane->navigate(folder);
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), Cursor(inner));
        pane->navigate(breaking);
        QVERIFY(settled(*pane) && !pane->error());
    }

    void navigateStandardizesAndResetsTheViewDownToTheRoot()
    {
        PaneFixture f;
        const fs::path sub = f.tree.folder("sub"), other = f.tree.folder("other");
        f.tree.file("sub/x");
        auto pane = f.listed();
        pane->setFilter("s");
        pane->setSelection({sub});
        pane->navigate(other / ".." / "." / "sub" / "");
        QVERIFY(pane->path() == f.text(sub) && pane->filter().isEmpty() && pane->selection().empty());
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), Cursor(sub / "x"));
        pane->navigate("/..");
        QVERIFY(settled(*pane));
        const std::optional<int> row = pane->visibleIndexOf("/tmp");
        QVERIFY(row && !pane->visibleIndexOf("//tmp"));
        QCOMPARE(pane->visibleAt(*row).url(), fs::path("/tmp")); // one separator after the root
    }

    void aFolderThatCannotBeListedShowsTheSystemErrorUntilLeft_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("reason");
        QTest::newRow("missing") << QString("missing") << "No such file or directory";
        QTest::newRow("a file") << QString("plain.txt") << "Not a directory";
    }
    void aFolderThatCannotBeListedShowsTheSystemErrorUntilLeft()
    {
        QFETCH(QString, name);
        QFETCH(QString, reason);
        PaneFixture f;
        const fs::path folder = f.tree / name.toStdString();
        f.tree.file("plain.txt");
        auto pane = f.listed();
        pane->navigate(folder);
        QVERIFY(settled(*pane, false));
        QCOMPARE(pane->error(), std::optional("The folder ‘" + name + "’ cannot be listed: " + reason + "."));
        QVERIFY(pane->entries().empty() && !pane->cursor());
        pane->navigate(f.tree.root());
        QVERIFY(settled(*pane) && !pane->error());
    }

    void theWatcherReloadsAndNoticesTheFolderGoing()
    {
        PaneFixture f;
        const fs::path shown = f.tree.folder("shown");
        auto pane = f.listed(shown);
        f.tree.file("shown/arrived");
        QTRY_COMPARE_WITH_TIMEOUT(namesOf(pane->entries()), QStringList{"arrived"}, 5000);
        fs::remove_all(shown);
        QTRY_VERIFY_WITH_TIMEOUT(pane->error().has_value(), 5000);
        QVERIFY(pane->error()->contains("No such file or directory") && pane->entries().empty());
    }
};

QTEST_GUILESS_MAIN(PaneModelListingTest)
#include "tst_panemodellisting.moc"
