#include "windowfixture.h"

#include "app/detail/paneinput.h"
#include "app/detail/panerowdelegate.h"
#include "app/detail/panetabstrip.h"
#include "model/commanderthemecolours.h"
#include "operations/operationcontrol.h"
#include "platform/core/numericdate.h"
#include "platform/desktop/bytecount.h"
#include "platform/desktop/fileurl.h"
#include "refusedwatches.h"

#include <QAbstractItemModelTester>
#include <QDrag>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QScrollBar>
#include <QStorageInfo>
#include <QTimer>
#include <QToolButton>

using namespace quillorn;
using namespace quillorn::test;

// The left pane of the real main window over real folders: listing, mouse, drag
// and drop, header, tabs and fields. "files" lists dir, f0 ... f5 (f<n> holds
// 10n bytes); "many" holds 200 files and one folder.
class TestFilePane : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_f.setUp();
        m_f.tree->folder("files/dir");
        for (int i = 0; i < 6; ++i)
            m_f.tree->file("files/f" + std::to_string(i), std::string(std::size_t(i * 10), 'x'));
        for (int i = 0; i < 200; ++i)
            m_f.tree->file("many/item" + std::to_string(1000 + i));
        m_f.tree->folder("many/zz-sub");
    }

    void cleanup() { m_f.tearDown(); }

    void itemModelPassesTesterThroughChanges()
    {
        open("files");
        QAbstractItemModelTester tester(table(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        m_f.left().setFilter("f");
        m_f.left().setSort(FileSort::size);
        m_f.left().setSelection({urlAt(1), urlAt(2)});
        m_f.tree->file("files/g");
        fs::remove(urlAt(1));
        QVERIFY(relist());
        QCOMPARE(table()->rowCount(), 5);
    }

    void rowsShowDirSizeDateAndColours()
    {
        open("files");
        QCOMPARE(text(0, 1), "<DIR>");
        QCOMPARE(text(6, 1), formattedByteCount(50));
        QCOMPARE(text(1, 2), formatNumericDate(m_f.left().visible().at(1).modified));
        pane()->setTheme(CommanderTheme::forest);
        const CommanderThemeColours c = colours(CommanderTheme::forest);
        auto *delegate = qobject_cast<detail::PaneRowDelegate *>(list()->itemDelegate());
        m_f.left().setSelection({urlAt(2)});
        m_f.left().setCursor(urlAt(2));
        QCOMPARE(delegate->rowBackground(table()->index(2, 1)), c.selection); // tagged wins over the cursor
        QCOMPARE(delegate->rowBackground(table()->index(5, 1)), c.alternateRow);
        const QImage image = list()->viewport()->grab().toImage(); // and that is what is drawn
        QCOMPARE(image.pixelColor(2, rowPoint(2).y()), c.selection);
        QCOMPARE(image.pixelColor(2, rowPoint(4).y()), c.row);
    }

    void clicksActivateThePaneMoveTheCursorAndTag()
    {
        open("files");
        m_f.view->model().setActiveLeft(false);
        click(2);
        QVERIFY(m_f.view->model().activeLeft());
        QVERIFY(m_f.left().selection().empty());
        QCOMPARE(m_f.left().cursor(), std::optional(urlAt(2)));
        click(4, Qt::ShiftModifier);
        QCOMPARE(m_f.left().selection(), (std::set<fs::path>{urlAt(2), urlAt(3), urlAt(4)}));
        click(0, Qt::ShiftModifier); // upwards adds, it never removes
        QCOMPARE(m_f.left().selection().size(), std::size_t(5));
        click(3, Qt::ControlModifier);
        QVERIFY(!m_f.left().selection().count(urlAt(3)));
        QCOMPARE(m_f.left().cursor(), std::optional(urlAt(3)));
        // Tags the filter hides count in the footer, and a plain click clears them too.
        auto *filter = child<QLineEdit>("filterField");
        filter->setFocus();
        QTest::keyClicks(filter, "f1 x"); // Space and Backspace edit the field, they do not tag or go up
        QTest::keyClicks(filter, "\b\b");
        QCOMPARE(child<QLabel>("footerItems")->text(), "1 items");
        QCOMPARE(child<QLabel>("footerTagged")->text(), "4 tagged, ≥ " + formattedByteCount(40) + freeText());
        click(0);
        QVERIFY(m_f.left().selection().empty());
        QVERIFY(!filter->hasFocus() && !list()->hasFocus()); // the listing never keeps the keyboard
    }

    void shiftClickWithoutVisibleCursorActsAsPlainClick()
    {
        open("files");
        m_f.left().setSelection({urlAt(1)});
        m_f.left().setCursor(urlAt(1)); // f0, about to be hidden with its tag
        m_f.left().setFilter("f4");
        click(0, Qt::ShiftModifier);
        QVERIFY(m_f.left().selection().empty());
        QCOMPARE(m_f.left().cursor(), std::optional(*m_f.tree / "files/f4"));
    }

    // Pressing on a tagged row keeps the tags, so that a drag takes them all; a
    // release without a drag is a plain click after all.
    void draggingATaggedRowDragsAllTaggedRows()
    {
        open("files");
        const std::set<fs::path> tagged{urlAt(2), urlAt(4), urlAt(5)};
        m_f.left().setSelection(tagged);
        m_f.left().setCursor(urlAt(1));
        QTest::mousePress(list()->viewport(), Qt::LeftButton, Qt::NoModifier, rowPoint(4));
        QCOMPARE(m_f.left().selection(), tagged);
        QCOMPARE(m_f.left().cursor(), std::optional(urlAt(1)));
        QCOMPARE(dragFrom(4), (QList<QUrl>{fileUrl(urlAt(2)), fileUrl(urlAt(4)), fileUrl(urlAt(5))}));
        QCOMPARE(m_f.left().selection(), tagged); // the drag cleared nothing
        QTest::mouseRelease(list()->viewport(), Qt::LeftButton, Qt::NoModifier, rowPoint(4));
        QCOMPARE(m_f.left().selection(), tagged);
        // An untagged row clears the tags at the press and goes alone.
        QTest::mousePress(list()->viewport(), Qt::LeftButton, Qt::NoModifier, rowPoint(3));
        QVERIFY(m_f.left().selection().empty());
        QCOMPARE(dragFrom(3), QList<QUrl>{fileUrl(urlAt(3))});
        QTest::mouseRelease(list()->viewport(), Qt::LeftButton, Qt::NoModifier, rowPoint(3));
        // A press and release on a tagged row without a drag is a plain click.
        m_f.left().setSelection(tagged);
        click(5);
        QVERIFY(m_f.left().selection().empty());
        QCOMPARE(m_f.left().cursor(), std::optional(urlAt(5)));
    }

    void dropOffersACopyOfTheFilesOnlyInOrderIntoThePanesFolder()
    {
        open("files");
        const auto drop = [&](const QList<QUrl> &urls) {
            QMimeData mime;
            mime.setUrls(urls);
            QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(pane(), &enter);
            QDropEvent drop(QPointF(20, 20), Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(pane(), &drop);
            return drop.isAccepted();
        };
        QVERIFY(drop({fileUrl(urlAt(3)), QUrl("https://example.com/page"), fileUrl(urlAt(2))}));
        QTRY_VERIFY(m_f.view->model().tool().has_value());
        const auto *transfer = m_f.view->model().tool()->as<ToolSheet::Transfer>();
        QVERIFY(transfer && !transfer->move);
        QCOMPARE(transfer->sources, (std::vector<fs::path>{urlAt(3), urlAt(2)}));
        QCOMPARE(transfer->destination, *m_f.tree / "files");
        m_f.view->model().setTool(std::nullopt);
        QVERIFY(drop({QUrl("https://example.com/")}));
        QTest::qWait(20);
        QVERIFY(!m_f.view->model().tool());
    }

    void missingFolderShowsErrorAndRetryLists()
    {
        open("later");
        auto *error = child<QWidget>("errorView");
        QVERIFY(error->isVisible());
        QCOMPARE(child<QLabel>("errorMessage")->text(), m_f.left().error().value_or(""));
        m_f.tree->file("later/inside");
        QSignalSpy listed(&m_f.left(), &PaneModel::listingApplied);
        QTest::mouseClick(child<QPushButton>("retryButton"), Qt::LeftButton);
        QVERIFY(listed.wait(5000));
        QVERIFY(!error->isVisible());
        QCOMPARE(table()->rowCount(), 1);
    }

    // A pane whose folder cannot be watched (no inotify watch left) still shows what
    // other programs do there, within a few seconds, and marks its footer.
    void unwatchedFolderIsReadAgainAndMarkedInTheFooter()
    {
        open("files");
        auto *mark = child<QLabel>("footerNotWatched");
        if (!watchesRefused()) {
            QTRY_VERIFY(m_f.left().isWatching());
            QVERIFY(!m_f.left().notWatched());
            QVERIFY(mark->isHidden());
            const auto [status, output] =
                runWithWatchesRefused("unwatchedFolderIsReadAgainAndMarkedInTheFooter");
            if (status == 77)
                QSKIP(output.c_str());
            QVERIFY2(status == 0, output.c_str());
            return;
        }
        QCOMPARE(table()->rowCount(), 7);
        m_f.tree->file("files/from-outside");
        QTRY_COMPARE_WITH_TIMEOUT(table()->rowCount(), 8, 15000);
        QVERIFY(m_f.left().notWatched());
        QVERIFY(mark->isVisible());
        QCOMPARE(mark->text(), "not watched");
        open("many");
        QVERIFY(mark->isVisible());
    }

    void namesThatAreNotUtf8AreDrawnSelectedDraggedAndTyped()
    {
        const fs::path odd = m_f.tree->file(std::string("caf\xe9/bad\xff\xfe name"), "x").parent_path();
        m_f.tree->folder(std::string("caf\xe9/inner"));
        open(odd);
        QVERIFY(text(1, 0).startsWith(QStringLiteral("bad") + QChar(0xFFFD)));
        click(1, Qt::ControlModifier);
        QCOMPARE(m_f.left().selection(), std::set<fs::path>{urlAt(1)});
        QCOMPARE(detail::droppedFiles(*detail::dragData({urlAt(1)})), std::vector<fs::path>{urlAt(1)});
        // The path field shows a replacement character yet keeps the folder's bytes.
        auto *path = child<QLineEdit>("pathField");
        QVERIFY(path->text().contains(QChar(0xFFFD)));
        path->setFocus();
        QTest::keyClicks(path, "/inner");
        QTest::keyClick(path, Qt::Key_Return);
        QCOMPARE(m_f.left().directory(), odd / "inner");
    }

    void cursorScrollsIntoViewAlsoWhenTheListingGrowsInTheSameStep()
    {
        open("many");
        m_f.left().setCursor(urlAt(199));
        QTRY_VERIFY(shows(199));
        const auto growListing = [&] {
            m_f.left().setFilter("item100");
            QTest::qWait(10);
            m_f.left().setFilter({});
        };
        growListing(); // the listing grows and the cursor moves in the same step
        m_f.left().setCursor(urlAt(100));
        QTRY_VERIFY(shows(100));
        growListing(); // straight after a reset, before the view has laid the new rows out
        list()->scrollToRow(150);
        QVERIFY(shows(150));
    }

    void relistingKeepsScrollPositionAndNavigationStartsAtTop()
    {
        open("many");
        m_f.left().setCursor(*m_f.tree / "many/item1150");
        QTRY_VERIFY(scrolled() > 0);
        const int offset = scrolled();
        m_f.tree->file("many/item0999"); // sorts first: a new listing, not a new folder
        QVERIFY(relist());
        QCOMPARE(scrolled(), offset);
        open("many/zz-sub");
        QCOMPARE(scrolled(), 0);
    }

    void goingUpShowsTheFolderOneCameFrom()
    {
        for (int i = 0; i < 100; ++i)
            m_f.tree->folder("up/d" + std::to_string(100 + i));
        open("up/d190");
        QTest::mouseClick(child<QToolButton>("upButton"), Qt::LeftButton);
        WindowFixture::waitListed(m_f.left());
        QCOMPARE(m_f.left().cursor(), std::optional(*m_f.tree / "up/d190"));
        QTRY_VERIFY(shows(90));
    }

    void headerDoubleClickTabsAndPathFieldDriveThePane()
    {
        open("files");
        QHeaderView *header = list()->horizontalHeader();
        const auto press = [&](int section) {
            const int x = header->sectionViewportPosition(section) + header->sectionSize(section) / 2;
            QTest::mouseClick(header->viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(x, 5));
            return table()->headerData(1, Qt::Horizontal).toString() + " " + text(1, 0);
        };
        QCOMPARE(press(1), "SIZE ↑ f0");
        QCOMPARE(press(1), "SIZE ↓ f5");
        QCOMPARE(press(0), "SIZE f0");
        QTest::mouseDClick(list()->viewport(), Qt::LeftButton, Qt::NoModifier, rowPoint(1));
        QCOMPARE(m_f.calls, QStringList{"open:f0"});
        QTest::mouseDClick(list()->viewport(), Qt::LeftButton, Qt::NoModifier, rowPoint(0));
        QCOMPARE(m_f.left().directory(), *m_f.tree / "files/dir");
        QTest::mouseClick(child<QToolButton>("upButton"), Qt::LeftButton);
        QCOMPARE(m_f.left().directory(), *m_f.tree / "files");

        auto *close = child<QToolButton>("closeTabButton");
        QVERIFY(!close->isEnabled());
        QTest::mouseClick(child<QToolButton>("newTabButton"), Qt::LeftButton);
        const QByteArray oldHome = qgetenv("HOME");
        qputenv("HOME", QByteArray::fromStdString(m_f.tree->root().string()));
        auto *path = child<QLineEdit>("pathField");
        path->setFocus();
        path->selectAll();
        QTest::keyClicks(path, "~/many");
        QTest::keyClick(path, Qt::Key_Return);
        qputenv("HOME", oldHome);
        QCOMPARE(m_f.left().directory(), *m_f.tree / "many");
        QVERIFY(!path->hasFocus());
        QCOMPARE(pane()->tabStrip()->tabButtons().at(1)->text(), "many");
        QTest::mouseClick(pane()->tabStrip()->tabButtons().at(0), Qt::LeftButton);
        QCOMPARE(child<QLabel>("directoryLabel")->text(), "files");
        QTest::mouseClick(close, Qt::LeftButton);
        QCOMPARE(m_f.left().directory(), *m_f.tree / "many");
        QVERIFY(!close->isEnabled());
        QCOMPARE(detail::folderLabel("/"), "/");
    }

    // Space tags a folder and counts it, Alt+Shift+Return counts every folder
    // shown, the footer adds up the tags, and Escape stops a count.
    void folderSizesInTheSizeColumnAndTheFooter()
    {
        m_f.tree->file("files/dir/inner/data", std::string(5000, 'x'));
        m_f.tree->file("files/dir2/data", std::string(700, 'x'));
        for (int i = 0; i < 300; ++i)
            m_f.tree->file("files/held/item" + std::to_string(i), "x");
        open("files"); // dir, dir2, held, f0 ... f5
        const auto counted = [](const fs::path &folder) {
            OperationControl control;
            return DirectoryTools::folderSizes({folder}, control).front().bytes;
        };
        const std::int64_t dir = counted(urlAt(0)), dir2 = counted(urlAt(1));
        QWidget *window = m_f.view->centralWidget();
        m_f.left().setCursor(urlAt(0));
        QTest::keyClick(window, Qt::Key_Space);
        QCOMPARE(m_f.left().selection(), std::set<fs::path>{urlAt(0)});
        QCOMPARE(m_f.left().cursor(), std::optional(urlAt(1)));
        QTRY_COMPARE(text(0, 1), formattedByteCount(dir));
        QCOMPARE(text(1, 1), "<DIR>");
        auto *footer = child<QLabel>("footerTagged");
        QCOMPARE(footer->text(), "1 tagged, " + formattedByteCount(dir) + freeText());
        const std::int64_t free = *m_f.left().freeSpace();
        QVERIFY(std::abs(free - QStorageInfo(QString::fromStdString(urlAt(0).string())).bytesAvailable()) <
                free / 50 + 1);
        m_f.left().setSelection({urlAt(0), urlAt(1), urlAt(8)}); // f5: 50 bytes
        QCOMPARE(footer->text(), "3 tagged, ≥ " + formattedByteCount(dir + 50) + freeText());

        QTest::keyClick(window, Qt::Key_Return, Qt::AltModifier | Qt::ShiftModifier);
        QTRY_COMPARE(text(2, 1), formattedByteCount(counted(urlAt(2))));
        QCOMPARE(text(1, 1), formattedByteCount(dir2));
        QCOMPARE(footer->text(), "3 tagged, " + formattedByteCount(dir + dir2 + 50) + freeText());
        QCOMPARE(m_f.left().directory(), *m_f.tree / "files"); // not opened

        // A count held after its first running total, until it is stopped.
        m_f.sizeCount = [](const auto &folders, OperationControl &control, const auto &progress) {
            const auto hold = [&](const std::vector<FolderSize> &sizes, const std::vector<bool> &finished) {
                progress(sizes, finished);
                control.pause();
                control.check();
            };
            return DirectoryTools::folderSizes(folders, control, hold, std::chrono::milliseconds(0));
        };
        m_f.left().reload();
        WindowFixture::waitListed(m_f.left());
        QCOMPARE(text(0, 1), "<DIR>");
        m_f.left().setSelection({});
        m_f.left().setCursor(urlAt(2));
        QTest::keyClick(window, Qt::Key_Space);
        QTRY_VERIFY(text(2, 1).size() > 1 && text(2, 1).endsWith("…")); // a running total
        QCOMPARE(footer->text(), "1 tagged, ≥ " + text(2, 1).chopped(1) + freeText());
        QTest::keyClick(window, Qt::Key_Escape);
        QCOMPARE(text(2, 1), "<DIR>");
        QVERIFY(!m_f.left().folderSizes().counting());
        m_f.sizeCount = {};
    }

private:
    QString freeText() const { return " · " + formattedByteCount(*m_f.left().freeSpace()) + " free"; }
    void open(const fs::path &folder)
    {
        m_f.left().navigate(*m_f.tree / folder);
        WindowFixture::waitListed(m_f.left());
    }
    bool relist()
    {
        QSignalSpy listed(&m_f.left(), &PaneModel::listingApplied);
        m_f.left().refresh();
        return listed.wait(5000);
    }
    FilePane *pane() const { return m_f.view->leftPane(); }
    detail::PaneTableView *list() const { return pane()->listView(); }
    detail::PaneTableModel *table() const { return pane()->listModel(); }
    QString text(int row, int column) const { return table()->index(row, column).data().toString(); }
    fs::path urlAt(int row) const { return m_f.left().visible().at(std::size_t(row)).url(); }
    QPoint rowPoint(int row) const { return list()->visualRect(table()->index(row, 0)).center(); }
    bool shows(int row) const { return list()->viewport()->rect().contains(rowPoint(row)); }
    int scrolled() const { return list()->verticalScrollBar()->value(); }
    void click(int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const
    {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, modifiers, rowPoint(row));
    }
    template <typename T> T *child(const char *name) const { return pane()->findChild<T *>(name); }
    // Moves the pressed mouse from a row far enough to drag; the URLs the drag carries.
    QList<QUrl> dragFrom(int row) const
    {
        QList<QUrl> urls;
        const qsizetype before = list()->findChildren<QDrag *>().size(); // an earlier one may linger
        const auto read = [&] {
            const QList<QDrag *> drags = list()->findChildren<QDrag *>();
            if (drags.size() > before && urls.isEmpty())
                urls = drags.last()->mimeData()->urls();
        };
        // Where the platform runs the drag in a loop of its own, it is read and ended there.
        QTimer during;
        during.setSingleShot(true);
        QObject::connect(&during, &QTimer::timeout, [&] {
            read();
            QDrag::cancel();
        });
        during.start(0);
        const QPoint to = rowPoint(row) + QPoint(3 * QApplication::startDragDistance(), 0);
        QMouseEvent move(QEvent::MouseMove, to, list()->viewport()->mapToGlobal(to), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(list()->viewport(), &move);
        read();
        return urls;
    }

    WindowFixture m_f;
};

QTEST_MAIN(TestFilePane)
#include "tst_filepane.moc"
