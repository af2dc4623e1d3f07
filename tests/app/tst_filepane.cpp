#include "panefixture.h"

#include "app/detail/busyoverlay.h"
#include "app/detail/paneinput.h"
#include "app/detail/panerowdelegate.h"
#include "model/commanderthemecolours.h"
#include "platform/core/numericdate.h"
#include "platform/desktop/bytecount.h"
#include "platform/desktop/fileurl.h"

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QScrollBar>
#include <QToolButton>

using namespace quillorn;
using namespace quillorn::test;
namespace fs = std::filesystem;

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

    void doubleClickOpensEntryAndUpButtonGoesToParent()
    {
        test::TestTree tree;
        tree.folder("sub/deeper");
        PaneFixture f(tree.root(), tree.root());
        QTest::mouseDClick(f.list()->viewport(), Qt::LeftButton, Qt::NoModifier,
                           f.rowPoint(f.rowOfName("sub")));
        QCOMPARE(f.opened.size(), std::size_t(1));
        QCOMPARE(f.opened.at(0).url(), tree / "sub");
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

    void cursorSetWithNewVisibleListScrollsIntoView()
    {
        test::TestTree tree;
        for (int i = 0; i < 200; ++i)
            tree.file("many/item" + std::to_string(1000 + i));
        PaneFixture f(tree / "many", tree.root());
        f.pane->setFilter("item100");
        QTest::qWait(10);
        // The listing grows and the cursor moves far down in the same step.
        f.pane->setFilter({});
        f.pane->setCursor(f.urlAt(180));
        const QModelIndex target = f.model()->index(180, 0);
        QTRY_VERIFY(f.list()->viewport()->rect().contains(f.list()->visualRect(target)));

        // Straight after a reset, before the view has laid the new rows out.
        f.pane->setFilter("item100");
        QTest::qWait(10);
        f.pane->setFilter({});
        f.list()->scrollToRow(150);
        QVERIFY(f.list()->viewport()->rect().contains(f.list()->visualRect(f.model()->index(150, 0))));
    }

    void relistingKeepsScrollPositionAndNavigationStartsAtTop()
    {
        test::TestTree tree;
        for (int i = 0; i < 200; ++i)
            tree.file("many/item" + std::to_string(1000 + i));
        tree.folder("many/zz-sub");
        PaneFixture f(tree / "many", tree.root());
        f.pane->setCursor(f.pane->directory() / "item1150");
        QTRY_VERIFY(f.list()->verticalScrollBar()->value() > 0);
        const int offset = f.list()->verticalScrollBar()->value();

        tree.file("many/item0999"); // sorts first: a new listing, not a new folder
        QSignalSpy resets(f.model(), &QAbstractItemModel::modelReset);
        QVERIFY(f.relist());
        QCOMPARE(resets.count(), 1);
        QCOMPARE(f.list()->verticalScrollBar()->value(), offset);

        f.pane->navigate(tree / "many" / "zz-sub");
        QCOMPARE(f.list()->verticalScrollBar()->value(), 0);
    }
};

QTEST_MAIN(TestFilePane)
#include "tst_filepane.moc"
