#include "panefixture.h"

#include <QSignalSpy>
#include <QTest>
#include <fstream>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;
using Cursor = std::optional<fs::path>;

// Listing real folders: refreshes, awkward names, failures, the watcher and the metadata timer.
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

    void twoQuickRefreshesApplyOnlyTheSecond()
    {
        PaneFixture f;
        for (int i = 0; i < 2000; ++i)
            f.tree.file("item" + std::to_string(i));
        auto pane = f.listed();
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        pane->refresh();
        std::ofstream(f.tree / "item0", std::ios::app) << "seen only by the second listing";
        pane->refresh();
        QVERIFY(applied.wait());
        QVERIFY(!applied.wait(300));
        QCOMPARE(pane->entries().at(0).size, 31);
    }

    void linksListAsWhatTheyLeadToAndHiddenItemsFollowTheSetting()
    {
        PaneFixture f;
        f.tree.file("target/inside");
        f.tree.symlink("folder-link", f.tree / "target");
        f.tree.symlink("file-link", f.tree.file("data", "12345"));
        f.tree.symlink("dangling", f.tree / "nowhere");
        f.tree.file(".hidden");
        auto pane = f.listed();
        QCOMPARE(namesOf(pane->entries()),
                 (QStringList{"folder-link", "target", "dangling", "data", "file-link"}));
        QCOMPARE(pane->entries()[4].size, 5);
        pane->setShowHidden(true);
        QTRY_VERIFY(namesOf(pane->entries()).contains(".hidden"));
        pane->navigate(f.tree / "folder-link");
        QVERIFY(settled(*pane));
        QCOMPARE(pane->directory(), f.tree / "folder-link"); // not resolved
        QCOMPARE(namesOf(pane->entries()), QStringList{"inside"});
    }

    void namesThatAreNotUtf8OrHoldLineFeedsListAndStaySelectableAndNavigable()
    {
        PaneFixture f;
        const fs::path latin = f.tree.file("r\xe9sum\xe9.txt"), folder = f.tree.folder("\xff\xfe-folder"),
                       inner = f.tree.file(folder / "inner"), lines = f.tree.file("two\nlines"),
                       breaking = f.tree.folder("folder\nbreak");
        auto pane = f.listed();
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
        QVERIFY(settled(*pane));
        QVERIFY(!pane->error());
        QCOMPARE(pane->path(), QString::fromUtf8(breaking.c_str()));
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
        QCOMPARE(pane->path(), text(sub));
        QVERIFY(pane->filter().isEmpty() && pane->selection().empty());
        QVERIFY(settled(*pane));
        QCOMPARE(pane->cursor(), Cursor(sub / "x"));
        pane->navigate("/..");
        QCOMPARE(pane->directory(), fs::path("/"));
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
        const fs::path file = f.tree.file("plain.txt"), folder = f.tree / name.toStdString();
        auto pane = f.listed();
        pane->setSelection({file});
        pane->navigate(folder);
        QVERIFY(settled(*pane, false));
        QCOMPARE(pane->error(), std::optional("The folder ‘" + name + "’ cannot be listed: " + reason + "."));
        QVERIFY(pane->entries().empty() && pane->selection().empty() && !pane->cursor());
        pane->navigate(f.tree.root());
        QVERIFY(settled(*pane));
        QVERIFY(!pane->error());
    }

    void theWatcherReloadsAndNoticesTheFolderGoing()
    {
        PaneFixture f;
        const fs::path shown = f.tree.folder("shown");
        auto pane = f.pane(shown);
        QVERIFY(settled(*pane));
        f.tree.file("shown/arrived");
        QTRY_COMPARE_WITH_TIMEOUT(namesOf(pane->entries()), QStringList{"arrived"}, 5000);
        fs::remove_all(shown);
        QTRY_VERIFY_WITH_TIMEOUT(pane->error().has_value(), 5000);
        QVERIFY(pane->error()->contains("No such file or directory") && pane->entries().empty());
        QCOMPARE(pane->directory(), shown);
    }

    void theMetadataTimerCatchesSizeChangesOnlyWhileActive()
    {
        PaneFixture f;
        const fs::path file = f.tree.file("growing", "1");
        bool active = true;
        auto pane = f.pane(f.tree.root(), {}, 50, [&] { return active; });
        QVERIFY(settled(*pane));
        std::ofstream(file, std::ios::app) << "23"; // the watcher does not see content writes
        QTRY_COMPARE_WITH_TIMEOUT(pane->entries().at(0).size, 3, 5000);
        active = false;
        QTRY_VERIFY(!pane->loading()); // a refresh started while active may still finish
        QSignalSpy applied(pane.get(), &PaneModel::listingApplied);
        std::ofstream(file, std::ios::app) << "45";
        QVERIFY(!applied.wait(400));
    }

    void destroyingAPaneWhileItListsIsSafe()
    {
        PaneFixture f;
        for (int i = 0; i < 3000; ++i)
            f.tree.file("n" + std::to_string(i));
        for (int i = 0; i < 5; ++i)
            f.pane(f.tree.root())->refresh();
        QCOMPARE(f.listed()->entries().size(), std::size_t(3000));
    }
};

QTEST_GUILESS_MAIN(PaneModelListingTest)
#include "tst_panemodellisting.moc"
