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
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

// One pane on a real folder, drawn by a shown FilePane.
struct PaneFixture {
    PaneFixture(const fs::path &folder, Preferences &preferences)
    {
        PaneModelOptions options;
        options.preferences = &preferences;
        options.metadataIntervalMs = 3'600'000;
        options.applicationIsActive = [] { return false; };
        pane = std::make_unique<PaneModel>(folder, QString(), options);
        QSignalSpy listed(pane.get(), &PaneModel::listingApplied);
        view = std::make_unique<FilePane>(*pane);
        view->activate = [this] { ++activations; };
        view->open = [this](const FileEntry &entry) { opened.push_back(entry.url()); };
        view->drop = [this](const std::vector<fs::path> &files) { dropped.push_back(files); };
        view->resize(640, 520);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
        QVERIFY(!pane->loading() || listed.wait(5000));
    }

    detail::PaneTableView *list() const { return view->listView(); }
    detail::PaneTableModel *model() const { return view->listModel(); }
    QString text(int row, int column) const { return model()->index(row, column).data().toString(); }
    fs::path urlAt(int row) const { return pane->visible().at(std::size_t(row)).url(); }
    QPoint rowPoint(int row) const { return list()->visualRect(model()->index(row, 0)).center(); }
    bool shows(int row) const { return list()->viewport()->rect().contains(rowPoint(row)); }
    int scrolled() const { return list()->verticalScrollBar()->value(); }
    void click(int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const
    {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, modifiers, rowPoint(row));
    }
    template <typename T> T *child(const char *name) const { return view->findChild<T *>(name); }
    bool relist() const
    {
        QSignalSpy listed(pane.get(), &PaneModel::listingApplied);
        pane->refresh();
        return listed.wait(5000);
    }

    std::unique_ptr<PaneModel> pane;
    std::unique_ptr<FilePane> view;
    int activations = 0;
    std::vector<fs::path> opened;
    std::vector<std::vector<fs::path>> dropped;
};

} // namespace

// The pane view over real folders: listing, mouse, drag and drop, header, tabs
// and fields. "files" lists dir, f0 ... f5 (f<n> holds 10n bytes); "many" holds
// 200 files and one folder.
class TestFilePane : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_tree = std::make_unique<test::TestTree>();
        m_tree->folder("files/dir");
        for (int i = 0; i < 6; ++i)
            m_tree->file("files/f" + std::to_string(i), std::string(std::size_t(i * 10), 'x'));
        for (int i = 0; i < 200; ++i)
            m_tree->file("many/item" + std::to_string(1000 + i));
        m_tree->folder("many/zz-sub");
        m_preferences =
            std::make_unique<Preferences>(QString::fromStdString((*m_tree / "prefs.ini").string()));
    }

    void cleanup()
    {
        m_pane.reset();
        m_preferences.reset();
        m_tree.reset();
    }

    void itemModelPassesTesterThroughChanges()
    {
        PaneFixture &f = open("files");
        QAbstractItemModelTester tester(f.model(), QAbstractItemModelTester::FailureReportingMode::QtTest);
        f.pane->setFilter("f");
        f.pane->setSort(FileSort::size);
        f.pane->setSelection({f.urlAt(1), f.urlAt(2)});
        m_tree->file("files/g");
        fs::remove(f.urlAt(1));
        QVERIFY(f.relist());
        QCOMPARE(f.model()->rowCount(), 5);
    }

    void rowsShowDirSizeDateAndColours()
    {
        PaneFixture &f = open("files");
        QCOMPARE(f.text(0, 1), "<DIR>");
        QCOMPARE(f.text(6, 1), formattedByteCount(50));
        QCOMPARE(f.text(1, 2), formatNumericDate(f.pane->visible().at(1).modified));
        f.view->setTheme(CommanderTheme::forest);
        const CommanderThemeColours c = colours(CommanderTheme::forest);
        auto *delegate = qobject_cast<detail::PaneRowDelegate *>(f.list()->itemDelegate());
        f.pane->setSelection({f.urlAt(2)});
        f.pane->setCursor(f.urlAt(2));
        QCOMPARE(delegate->rowBackground(f.model()->index(2, 1)), c.selection); // tagged wins over the cursor
        QCOMPARE(delegate->rowBackground(f.model()->index(5, 1)), c.alternateRow);
        const QImage image = f.list()->viewport()->grab().toImage(); // and that is what is drawn
        QCOMPARE(image.pixelColor(2, f.rowPoint(2).y()), c.selection);
        QCOMPARE(image.pixelColor(2, f.rowPoint(4).y()), c.row);
    }

    void clicksMoveTheCursorAndTag()
    {
        PaneFixture &f = open("files");
        f.click(2);
        QVERIFY(f.pane->selection().empty());
        QCOMPARE(f.pane->cursor(), std::optional(f.urlAt(2)));
        QVERIFY(f.activations > 0);
        f.click(4, Qt::ShiftModifier);
        QCOMPARE(f.pane->selection(), (std::set<fs::path>{f.urlAt(2), f.urlAt(3), f.urlAt(4)}));
        f.click(0, Qt::ShiftModifier); // upwards adds, it never removes
        QCOMPARE(f.pane->selection().size(), std::size_t(5));
        f.click(3, Qt::ControlModifier);
        QVERIFY(!f.pane->selection().count(f.urlAt(3)));
        QCOMPARE(f.pane->cursor(), std::optional(f.urlAt(3)));
        // Tags the filter hides count in the footer, and a plain click clears them too.
        auto *filter = f.child<QLineEdit>("filterField");
        filter->setFocus();
        QTest::keyClicks(filter, "f1");
        QCOMPARE(f.child<QLabel>("footerItems")->text(), "1 items");
        QCOMPARE(f.child<QLabel>("footerTagged")->text(), "4 tagged");
        f.click(0);
        QVERIFY(f.pane->selection().empty());
        QVERIFY(!filter->hasFocus() && !f.list()->hasFocus()); // the listing never keeps the keyboard
    }

    void dropPassesOnlyFilesInOrder()
    {
        PaneFixture &f = open("files");
        const auto dropUrls = [&](const QList<QUrl> &urls) {
            QMimeData mime;
            mime.setUrls(urls);
            QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(f.view.get(), &enter);
            QDropEvent drop(QPointF(20, 20), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
            QApplication::sendEvent(f.view.get(), &drop);
            return drop.isAccepted();
        };
        QVERIFY(dropUrls({fileUrl(f.urlAt(3)), QUrl("https://example.com/page"), fileUrl(f.urlAt(2))}));
        QTRY_COMPARE(f.dropped.size(), std::size_t(1));
        QVERIFY(dropUrls({QUrl("https://example.com/")}));
        QTest::qWait(20);
        QCOMPARE(f.dropped, (std::vector<std::vector<fs::path>>{{f.urlAt(3), f.urlAt(2)}}));
    }

    void missingFolderShowsErrorAndRetryLists()
    {
        PaneFixture &f = open("later");
        auto *error = f.child<QWidget>("errorView");
        QVERIFY(error->isVisible());
        QCOMPARE(f.child<QLabel>("errorMessage")->text(), f.pane->error().value_or(""));
        m_tree->file("later/inside");
        QSignalSpy listed(f.pane.get(), &PaneModel::listingApplied);
        QTest::mouseClick(f.child<QPushButton>("retryButton"), Qt::LeftButton);
        QVERIFY(listed.wait(5000));
        QVERIFY(!error->isVisible());
        QCOMPARE(f.model()->rowCount(), 1);
    }

    void loadingIndicatorShowsOnlyAfterItsDelay()
    {
        PaneFixture &f = open("files");
        auto *busy = f.child<detail::BusyOverlay>("loadingIndicator");
        QSignalSpy listed(f.pane.get(), &PaneModel::listingApplied);
        for (int delay : {60'000, 0}) {
            busy->setShowDelay(delay);
            f.pane->refresh();
            QCOMPARE(busy->isVisible(), delay == 0);
            QVERIFY(listed.wait(5000));
            QVERIFY(!busy->isVisible());
        }
    }

    void namesThatAreNotUtf8AreDrawnSelectedDraggedAndTyped()
    {
        const fs::path odd = m_tree->file(std::string("caf\xe9/bad\xff\xfe name"), "x").parent_path();
        m_tree->folder(std::string("caf\xe9/inner"));
        PaneFixture &f = open(odd);
        QVERIFY(f.text(1, 0).startsWith(QStringLiteral("bad") + QChar(0xFFFD)));
        f.click(1, Qt::ControlModifier);
        QCOMPARE(f.pane->selection(), std::set<fs::path>{f.urlAt(1)});
        QCOMPARE(detail::droppedFiles(*detail::dragData(f.urlAt(1))), std::vector<fs::path>{f.urlAt(1)});
        // The path field shows a replacement character yet keeps the folder's bytes.
        auto *path = f.child<QLineEdit>("pathField");
        QVERIFY(path->text().contains(QChar(0xFFFD)));
        path->setFocus();
        QTest::keyClicks(path, "/inner");
        QTest::keyClick(path, Qt::Key_Return);
        QCOMPARE(f.pane->directory(), odd / "inner");
    }

    void shiftClickWithoutVisibleCursorActsAsPlainClick()
    {
        PaneFixture &f = open("files");
        f.pane->setSelection({f.urlAt(1)});
        f.pane->setCursor(f.urlAt(1)); // f0, about to be hidden with its tag
        f.pane->setFilter("f4");
        f.click(0, Qt::ShiftModifier);
        QVERIFY(f.pane->selection().empty());
        QCOMPARE(f.pane->cursor(), std::optional(*m_tree / "files/f4"));
    }

    void cursorScrollsIntoViewAlsoWhenTheListingGrowsInTheSameStep()
    {
        PaneFixture &f = open("many");
        f.pane->setCursor(f.urlAt(199));
        QTRY_VERIFY(f.shows(199));
        f.pane->setFilter("item100");
        QTest::qWait(10);
        f.pane->setFilter({}); // the listing grows and the cursor moves in the same step
        f.pane->setCursor(f.urlAt(100));
        QTRY_VERIFY(f.shows(100));
        f.pane->setFilter("item100");
        QTest::qWait(10);
        f.pane->setFilter({}); // straight after a reset, before the view has laid the new rows out
        f.list()->scrollToRow(150);
        QVERIFY(f.shows(150));
    }

    void relistingKeepsScrollPositionAndNavigationStartsAtTop()
    {
        PaneFixture &f = open("many");
        f.pane->setCursor(*m_tree / "many/item1150");
        QTRY_VERIFY(f.scrolled() > 0);
        const int offset = f.scrolled();
        m_tree->file("many/item0999"); // sorts first: a new listing, not a new folder
        QVERIFY(f.relist());
        QCOMPARE(f.scrolled(), offset);
        f.pane->navigate(*m_tree / "many/zz-sub");
        QCOMPARE(f.scrolled(), 0);
    }

    void headerTabsAndPathFieldDriveThePane()
    {
        const QByteArray oldHome = qgetenv("HOME");
        qputenv("HOME", QByteArray::fromStdString(m_tree->root().string()));
        PaneFixture &f = open("files");
        QHeaderView *header = f.list()->horizontalHeader();
        const auto press = [&](int section) {
            const int x = header->sectionViewportPosition(section) + header->sectionSize(section) / 2;
            QTest::mouseClick(header->viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(x, 5));
            return f.model()->headerData(1, Qt::Horizontal).toString() + " " + f.text(1, 0);
        };
        QCOMPARE(press(1), "SIZE ↑ f0");
        QCOMPARE(press(1), "SIZE ↓ f5");
        QCOMPARE(press(0), "SIZE f0");
        QTest::mouseDClick(f.list()->viewport(), Qt::LeftButton, Qt::NoModifier, f.rowPoint(0));
        QCOMPARE(f.opened, std::vector<fs::path>{*m_tree / "files/dir"});

        auto *close = f.child<QToolButton>("closeTabButton");
        QVERIFY(!close->isEnabled());
        QTest::mouseClick(f.child<QToolButton>("newTabButton"), Qt::LeftButton);
        auto *path = f.child<QLineEdit>("pathField");
        path->setFocus();
        path->selectAll();
        QTest::keyClicks(path, "~/many");
        QTest::keyClick(path, Qt::Key_Return);
        qputenv("HOME", oldHome);
        QCOMPARE(f.pane->directory(), *m_tree / "many");
        QVERIFY(!path->hasFocus() && f.activations > 0);
        QCOMPARE(f.view->tabStrip()->tabButtons().at(1)->text(), "many");
        QTest::mouseClick(f.view->tabStrip()->tabButtons().at(0), Qt::LeftButton);
        QCOMPARE(f.child<QLabel>("directoryLabel")->text(), "files");
        QTest::mouseClick(close, Qt::LeftButton);
        QCOMPARE(f.pane->directory(), *m_tree / "many");
        QVERIFY(!close->isEnabled());
        QTest::mouseClick(f.child<QToolButton>("upButton"), Qt::LeftButton);
        QCOMPARE(f.pane->directory(), m_tree->root());
        QCOMPARE(detail::folderLabel("/"), "/");
    }

private:
    PaneFixture &open(const fs::path &folder)
    {
        m_pane = std::make_unique<PaneFixture>(*m_tree / folder, *m_preferences);
        return *m_pane;
    }

    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<PaneFixture> m_pane;
};

QTEST_MAIN(TestFilePane)
#include "tst_filepane.moc"
