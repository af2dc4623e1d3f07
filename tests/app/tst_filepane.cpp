#include "app/detail/busyoverlay.h"
#include "app/detail/paneheaderbar.h"
#include "app/detail/paneinput.h"
#include "app/detail/panerowdelegate.h"
#include "app/detail/panetablemodel.h"
#include "app/detail/panetableview.h"
#include "app/detail/panetabstrip.h"
#include "app/filepane.h"
#include "model/commanderthemecolours.h"
#include "model/panemodel.h"
#include "platform/core/numericdate.h"
#include "platform/core/preferences.h"
#include "platform/desktop/bytecount.h"
#include "platform/desktop/fileurl.h"

#include "testtree.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

// One pane on a real temporary folder, drawn by a shown FilePane, with its
// preferences in a file of its own.
struct PaneFixture {
    explicit PaneFixture(const fs::path &folder, const fs::path &prefsFolder)
        : preferences(QString::fromStdString((prefsFolder / "prefs.ini").string()))
    {
        PaneModelOptions options;
        options.preferences = &preferences;
        options.metadataIntervalMs = 3'600'000;
        options.applicationIsActive = [] { return false; };
        pane = std::make_unique<PaneModel>(folder, QString(), options);
        QSignalSpy listed(pane.get(), &PaneModel::listingApplied);
        view = std::make_unique<FilePane>(*pane);
        view->activate = [this] { ++activations; };
        view->open = [this](const FileEntry &entry) { opened.push_back(entry); };
        view->drop = [this](const std::vector<fs::path> &files) { dropped.push_back(files); };
        view->resize(640, 520);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
        if (pane->loading())
            QVERIFY(listed.wait(5000));
    }

    QTableView *list() const { return view->listView(); }
    detail::PaneTableModel *model() const { return view->listModel(); }
    int rowOfName(const std::string &name) const
    {
        const auto row = pane->visibleIndexOf(pane->directory() / name);
        return row ? *row : -1;
    }
    QPoint rowPoint(int row) const { return list()->visualRect(model()->index(row, 0)).center(); }
    void click(int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const
    {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, modifiers, rowPoint(row));
    }
    fs::path urlAt(int row) const { return pane->visible().at(std::size_t(row)).url; }
    void pressHeader(int section) const
    {
        QHeaderView *header = list()->horizontalHeader();
        const QPoint point(header->sectionViewportPosition(section) + header->sectionSize(section) / 2,
                           header->height() / 2);
        QTest::mouseClick(header->viewport(), Qt::LeftButton, Qt::NoModifier, point);
    }
    QString headerText(int section) const
    {
        return model()->headerData(section, Qt::Horizontal, Qt::DisplayRole).toString();
    }
    template <typename T> T *child(const char *name) const
    {
        return view->findChild<T *>(QString::fromLatin1(name));
    }
    bool relist() const
    {
        QSignalSpy listed(pane.get(), &PaneModel::listingApplied);
        pane->refresh();
        return listed.wait(5000);
    }

    Preferences preferences;
    std::unique_ptr<PaneModel> pane;
    std::unique_ptr<FilePane> view;
    int activations = 0;
    std::vector<FileEntry> opened;
    std::vector<std::vector<fs::path>> dropped;
};

// Six files f0 ... f5 and one folder, so the listing is: dir, f0, ..., f5.
void fillSix(test::TestTree &tree)
{
    tree.folder("dir");
    for (int i = 0; i < 6; ++i)
        tree.file("files/f" + std::to_string(i), std::string(std::size_t(i * 10), 'x'));
}

} // namespace

class TestFilePane : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void itemModelPassesTesterThroughChanges()
    {
        test::TestTree tree;
        tree.folder("b-folder");
        tree.file("a.txt", "hello");
        tree.file("c.txt");
        PaneFixture f(tree.root(), tree.root());
        QAbstractItemModelTester tester(f.model(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        QCOMPARE(f.model()->rowCount(), 3);
        QCOMPARE(f.model()->columnCount(), 3);
        f.pane->setFilter("txt");
        QCOMPARE(f.model()->rowCount(), 2);
        f.pane->setSort(FileSort::size);
        f.pane->setAscending(false);
        f.pane->setFilter("");
        f.pane->setSelection({tree / "a.txt", tree / "c.txt"});
        f.pane->setCursor(tree / "c.txt");
        tree.file("d.txt");
        QVERIFY(f.relist());
        QCOMPARE(f.model()->rowCount(), 4);
        fs::remove(tree / "a.txt");
        QVERIFY(f.relist());
        QCOMPARE(f.model()->rowCount(), 3);
    }

    void tagAndCursorChangesRepaintRowsWithoutReset()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        QSignalSpy resets(f.model(), &QAbstractItemModel::modelReset);
        QSignalSpy changes(f.model(), &QAbstractItemModel::dataChanged);
        f.pane->setSelection({f.urlAt(1), f.urlAt(3)});
        QCOMPARE(changes.count(), 1);
        QVERIFY(changes.at(0).at(0).toModelIndex().row() <= 1);
        QVERIFY(changes.at(0).at(1).toModelIndex().row() >= 3);
        f.pane->setCursor(f.urlAt(4));
        QCOMPARE(changes.count(), 3); // the row it left and the row it reached
        QCOMPARE(changes.at(2).at(0).toModelIndex().row(), 4);
        QCOMPARE(changes.at(2).at(1).toModelIndex().row(), 4);
        QCOMPARE(resets.count(), 0);
        QVERIFY(f.model()->index(1, 0).data(detail::PaneTableModel::taggedRole).toBool());
        QVERIFY(!f.model()->index(2, 0).data(detail::PaneTableModel::taggedRole).toBool());
        QVERIFY(f.model()->index(4, 2).data(detail::PaneTableModel::cursorRole).toBool());
        f.pane->setFilter("f");
        QCOMPARE(resets.count(), 1);
    }

    void rowColoursFollowTagsCursorAndParity()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        f.view->setTheme(CommanderTheme::forest);
        const CommanderThemeColours c = colours(CommanderTheme::forest);
        auto *delegate = qobject_cast<detail::PaneRowDelegate *>(f.list()->itemDelegate());
        QVERIFY(delegate);
        f.pane->setSelection({f.urlAt(1), f.urlAt(2)});
        f.pane->setCursor(f.urlAt(2));
        auto background = [&](int row, int column) {
            return delegate->rowBackground(f.model()->index(row, column));
        };
        QCOMPARE(background(1, 0), c.selection);
        QCOMPARE(background(2, 2), c.selection); // tagged wins over the cursor
        f.pane->setCursor(f.urlAt(3));
        QColor cursor = c.selection;
        cursor.setAlphaF(0.45f);
        QCOMPARE(background(3, 1), cursor);
        QCOMPARE(background(4, 0), c.row);
        QCOMPARE(background(5, 0), c.alternateRow);

        // And that is what reaches the screen: sample the tagged row's left edge.
        const QImage image = f.list()->viewport()->grab().toImage();
        const QRect tagged = f.list()->visualRect(f.model()->index(1, 0));
        QCOMPARE(image.pixelColor(tagged.left() + 2, tagged.center().y()), c.selection);
        const QRect plain = f.list()->visualRect(f.model()->index(4, 0));
        QCOMPARE(image.pixelColor(plain.left() + 2, plain.center().y()), c.row);
    }

    void rowsShowDirSizeAndNumericDate()
    {
        test::TestTree tree;
        tree.folder("sub");
        tree.file("empty");
        tree.file("big", std::string(12'345, 'x'));
        PaneFixture f(tree.root(), tree.root());
        const int dir = f.rowOfName("sub");
        QCOMPARE(dir, 0); // folders first
        QCOMPARE(f.model()->index(dir, 1).data().toString(), "<DIR>");
        QCOMPARE(f.model()->index(f.rowOfName("empty"), 1).data().toString(), formattedByteCount(0));
        QCOMPARE(f.model()->index(f.rowOfName("big"), 1).data().toString(), formattedByteCount(12'345));
        QVERIFY(formattedByteCount(12'345).contains("12"));
        const FileEntry &big = f.pane->visible().at(std::size_t(f.rowOfName("big")));
        QCOMPARE(f.model()->index(f.rowOfName("big"), 2).data().toString(), formatNumericDate(big.modified));
        QCOMPARE(f.model()->index(f.rowOfName("big"), 0).data().toString(), "big");
    }

    void plainThenShiftClickTagsTheRange()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        f.click(2);
        QVERIFY(f.pane->selection().empty());
        QCOMPARE(f.pane->cursor(), std::optional(f.urlAt(2)));
        f.click(5, Qt::ShiftModifier);
        const std::set<fs::path> expected{f.urlAt(2), f.urlAt(3), f.urlAt(4), f.urlAt(5)};
        QCOMPARE(f.pane->selection(), expected);
        QCOMPARE(f.pane->cursor(), std::optional(f.urlAt(5)));
        QVERIFY(f.activations > 0);
        // Shift-click upwards adds, it never removes.
        f.click(0, Qt::ShiftModifier);
        QCOMPARE(f.pane->selection().size(), std::size_t(6));
    }

    void shiftClickWithoutVisibleCursorActsAsPlainClick()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        f.pane->setSelection({f.urlAt(0)});
        f.pane->setCursor(f.urlAt(0)); // f0, about to be hidden with its tag
        f.pane->setFilter("f4");
        QCOMPARE(f.model()->rowCount(), 1);
        f.click(0, Qt::ShiftModifier);
        QVERIFY(f.pane->selection().empty());
        QCOMPARE(f.pane->cursor(), std::optional(tree / "files" / "f4"));
    }

    void ctrlClickTogglesTagAndMovesCursor()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        f.click(1, Qt::ControlModifier);
        f.click(3, Qt::ControlModifier);
        QCOMPARE(f.pane->selection(), (std::set<fs::path>{f.urlAt(1), f.urlAt(3)}));
        f.click(1, Qt::ControlModifier);
        QCOMPARE(f.pane->selection(), (std::set<fs::path>{f.urlAt(3)}));
        QCOMPARE(f.pane->cursor(), std::optional(f.urlAt(1)));
    }

    void plainClickClearsTagsHiddenByFilter()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        f.pane->setSelection({f.urlAt(0), f.urlAt(5)});
        f.pane->setFilter("f5");
        QCOMPARE(f.model()->rowCount(), 1);
        f.pane->setFilter("f");
        f.pane->setFilter("f1");
        f.click(0);
        QVERIFY(f.pane->selection().empty());
        QCOMPARE(f.pane->cursor(), std::optional(tree / "files" / "f1"));
    }

    void footerCountsVisibleItemsAndAllTags()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        auto *items = f.child<QLabel>("footerItems");
        auto *tagged = f.child<QLabel>("footerTagged");
        QCOMPARE(items->text(), "6 items");
        QCOMPARE(tagged->text(), "0 tagged");
        f.pane->setSelection({f.urlAt(1), f.urlAt(2)});
        f.child<QLineEdit>("filterField")->setFocus();
        QTest::keyClicks(f.child<QLineEdit>("filterField"), "f2");
        QCOMPARE(f.pane->filter(), "f2");
        QCOMPARE(items->text(), "1 items");
        QCOMPARE(tagged->text(), "2 tagged");
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

    void dropPassesOnlyFilesInOrder()
    {
        test::TestTree tree;
        const fs::path first = tree.file("first.txt");
        const fs::path second = tree.file("second.txt");
        PaneFixture f(tree.root(), tree.root());
        QMimeData mime;
        mime.setUrls({fileUrl(second), QUrl("https://example.com/page"), fileUrl(first)});
        QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(f.view.get(), &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(QPointF(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(f.view.get(), &drop);
        QVERIFY(drop.isAccepted());
        QTRY_COMPARE(f.dropped.size(), std::size_t(1));
        QCOMPARE(f.dropped.at(0), (std::vector<fs::path>{second, first}));

        QMimeData webOnly;
        webOnly.setUrls({QUrl("https://example.com/")});
        QDragEnterEvent enterWeb(QPoint(20, 20), Qt::CopyAction, &webOnly, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(f.view.get(), &enterWeb);
        QDropEvent nothing(QPointF(20, 20), Qt::CopyAction, &webOnly, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(f.view.get(), &nothing);
        QVERIFY(nothing.isAccepted());
        QTest::qWait(20);
        QCOMPARE(f.dropped.size(), std::size_t(1));
    }

    void invalidUtf8NameIsDrawnAndSelectable()
    {
        test::TestTree tree;
        const fs::path odd = tree.file(std::string("bad\xff\xfe name"), "x");
        tree.file("good");
        PaneFixture f(tree.root(), tree.root());
        const int row = f.rowOfName(odd.filename().native());
        QVERIFY(row >= 0);
        const QString shown = f.model()->index(row, 0).data().toString();
        QVERIFY(shown.contains(QChar(0xFFFD)));
        QVERIFY(shown.startsWith("bad"));
        f.click(row, Qt::ControlModifier);
        QCOMPARE(f.pane->cursor(), std::optional(odd));
        QCOMPARE(f.pane->selection(), std::set<fs::path>{odd});
        // The bytes survive a drag out and a drop back in.
        const auto dragged = detail::dragData(odd);
        QCOMPARE(dragged->urls().size(), 1);
        QVERIFY(dragged->urls().at(0).isLocalFile());
        QCOMPARE(detail::droppedFiles(*dragged), std::vector<fs::path>{odd});
    }

    void errorViewShowsMessageAndRetryLists()
    {
        test::TestTree tree;
        PaneFixture f(tree / "later", tree.root());
        auto *error = f.child<QWidget>("errorView");
        QVERIFY(f.pane->error().has_value());
        QVERIFY(error->isVisible());
        QCOMPARE(f.child<QLabel>("errorMessage")->text(), *f.pane->error());
        QVERIFY(!f.child<QLabel>("errorMessage")->text().isEmpty());
        QCOMPARE(f.model()->rowCount(), 0);

        tree.file("later/inside");
        QSignalSpy listed(f.pane.get(), &PaneModel::listingApplied);
        QTest::mouseClick(f.child<QPushButton>("retryButton"), Qt::LeftButton);
        QVERIFY(listed.wait(5000));
        QVERIFY(!f.pane->error().has_value());
        QVERIFY(!error->isVisible());
        QCOMPARE(f.model()->rowCount(), 1);
    }

    void loadingIndicatorCoversListWhileListing()
    {
        test::TestTree tree;
        tree.file("a");
        PaneFixture f(tree.root(), tree.root());
        auto *busy = f.child<detail::BusyOverlay>("loadingIndicator");
        QVERIFY(!busy->isVisible());
        busy->setShowDelay(0);
        QSignalSpy listed(f.pane.get(), &PaneModel::listingApplied);
        f.pane->refresh();
        QVERIFY(f.pane->loading());
        QVERIFY(busy->isVisible());
        QCOMPARE(busy->geometry(), f.list()->viewport()->rect());
        QVERIFY(listed.wait(5000));
        QVERIFY(!busy->isVisible());

        // A listing quicker than the delay never shows the indicator.
        busy->setShowDelay(60'000);
        f.pane->refresh();
        QVERIFY(f.pane->loading());
        QVERIFY(!busy->isVisible());
        QVERIFY(listed.wait(5000));
        QVERIFY(!busy->isVisible());
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

    void doubleClickOpensEntryAndUpButtonGoesToParent()
    {
        test::TestTree tree;
        tree.folder("sub/deeper");
        PaneFixture f(tree.root(), tree.root());
        QTest::mouseDClick(f.list()->viewport(), Qt::LeftButton, Qt::NoModifier,
                           f.rowPoint(f.rowOfName("sub")));
        QCOMPARE(f.opened.size(), std::size_t(1));
        QCOMPARE(f.opened.at(0).url, tree / "sub");
        QVERIFY(f.opened.at(0).directory);

        f.pane->navigate(tree / "sub");
        QTest::mouseClick(f.child<QToolButton>("upButton"), Qt::LeftButton);
        QCOMPARE(f.pane->directory(), tree.root());
    }

    void clickOnRowTakesFocusFromTextField()
    {
        test::TestTree tree;
        fillSix(tree);
        PaneFixture f(tree / "files", tree.root());
        auto *filter = f.child<QLineEdit>("filterField");
        f.view->activateWindow();
        filter->setFocus();
        QTRY_VERIFY(filter->hasFocus());
        f.click(1);
        QVERIFY(!filter->hasFocus());
        QVERIFY(!f.list()->hasFocus()); // the listing never takes the keyboard
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

    void cursorChangeScrollsRowIntoView()
    {
        test::TestTree tree;
        for (int i = 0; i < 200; ++i)
            tree.file("many/item" + std::to_string(1000 + i));
        PaneFixture f(tree / "many", tree.root());
        const QModelIndex last = f.model()->index(199, 0);
        QVERIFY(!f.list()->viewport()->rect().contains(f.list()->visualRect(last)));
        f.pane->setCursor(f.urlAt(199));
        QTRY_VERIFY(f.list()->viewport()->rect().contains(f.list()->visualRect(last)));
        f.pane->setCursor(std::nullopt);
        QTest::qWait(10);
        QVERIFY(f.list()->viewport()->rect().contains(f.list()->visualRect(last)));
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
};

QTEST_MAIN(TestFilePane)
#include "tst_filepane.moc"
