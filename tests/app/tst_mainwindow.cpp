#include "app/commanderappdelegate.h"
#include "app/commandertoolbar.h"
#include "app/commanderview.h"
#include "app/detail/panetablemodel.h"
#include "app/detail/panetableview.h"
#include "app/filepane.h"
#include "app/functionkeybar.h"
#include "app/statusline.h"
#include "model/commanderthemecolours.h"
#include "operations/commandererror.h"
#include "platform/core/preferences.h"
#include "quillorn/version.h"
#include "testtree.h"
#include "tools/queueview.h"
#include "tools/toolhost.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

bool drawsIn(const QImage &image, const QColor &colour)
{
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixelColor(x, y) == colour)
                return true;
    return false;
}

} // namespace

// The whole main window over two real folders: mouse and keyboard through the
// real window, sheets, the bars, the real clipboard and the theme on every surface. With
// QUILLORN_SCREENSHOT_DIR set, the theme test also saves a picture of the window in each theme there.
class MainWindowTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((m_home / "data").string()));
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((m_home / "config").string()));
        qunsetenv("QUILLORN_RELEASE_PREVIEW_THEME");
    }

    void init()
    {
        m_tree = std::make_unique<test::TestTree>();
        for (const char *folder : {"Left/Documents", "Left/Music", "Right/Archive"})
            m_tree->folder(folder);
        for (const char *file : {"Left/notes.txt", "Left/photo.jpg", "Left/report.pdf", "Right/todo.md"})
            m_tree->file(file, "some text\n");
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((*m_tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((*m_tree / "Right").string()));
        m_calls.clear();
        CommanderModelOptions options;
        options.panes.preferences = &m_preferences;
        options.panes.metadataIntervalMs = 3'600'000;
        options.queuePollIntervalMs = 10;
        options.desktop.alert = [](const AlertRequest &) { return -1; };
        options.desktop.prompt = [](const QString &, const QString &) { return std::optional<QString>(); };
        options.desktop.openFile = [this](const fs::path &file) {
            m_calls << "open:" + QString::fromStdString(file.filename().string());
        };
        m_view = std::make_unique<CommanderView>(std::move(options));
        for (PaneModel *pane : {&m_view->model().left(), &m_view->model().right()}) {
            QSignalSpy listed(pane, &PaneModel::listingApplied);
            QVERIFY(!pane->loading() || listed.wait());
        }
    }

    void cleanup()
    {
        m_view.reset();
        m_tree.reset();
    }

    void previewFoldersPersistNothing()
    {
        QCOMPARE(m_view->windowTitle(), QStringLiteral("Quillorn v") + QString::fromLatin1(kVersion));
        QCOMPARE(m_view->model().left().directory(), *m_tree / "Left");
        QCOMPARE(m_view->model().right().directory(), *m_tree / "Right");
        m_view->model().left().navigate(m_tree->root());
        m_preferences.sync();
        QVERIFY(!m_preferences.contains("left.lastDirectory"));
        QVERIFY(!m_preferences.contains(".lastDirectory"));
    }

    void keysDriveTheWindowUntilASheetTakesThem()
    {
        CommanderAppDelegate::queue = nullptr;
        showActive();
        QCOMPARE(CommanderAppDelegate::queue.data(), &m_view->model().queue());
        m_view->hide(); // showing again must not install a second key monitor
        showActive();
        m_view->model().left().setCursor(std::nullopt);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down);
        QCOMPARE(m_view->model().left().cursor(), std::optional(*m_tree / "Left/Documents"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(m_view->toolBar()->activePaneLabel()->text(), QStringLiteral("RIGHT PANE ACTIVE"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        // F5 opens the transfer sheet; while it is up, Tab belongs to it.
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_F5);
        QDialog *sheet = m_view->toolHost()->sheet();
        QVERIFY(sheet);
        QTRY_VERIFY(QApplication::activeModalWidget() == sheet);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY(m_view->model().activeLeft());
        QTest::keyClick(sheet, Qt::Key_Escape);
        // Closing the sheet gives the keyboard back at once.
        QTRY_VERIFY(QApplication::activeModalWidget() == nullptr);
        QTest::keyClick(m_view.get(), Qt::Key_Tab);
        QVERIFY(!m_view->model().activeLeft());
    }

    void clickActivatesPaneAndDoubleClickOpens()
    {
        showActive();
        FilePane *right = m_view->rightPane();
        QTest::mouseClick(right->findChild<QLabel *>("footerItems"), Qt::LeftButton);
        QVERIFY(!m_view->model().activeLeft() && right->active() && !m_view->leftPane()->active());
        const auto doubleClick = [&](int row) {
            const QRect rect = right->listView()->visualRect(right->listModel()->index(row, 0));
            QTest::mouseDClick(right->listView()->viewport(), Qt::LeftButton, Qt::NoModifier, rect.center());
        };
        doubleClick(1);
        QCOMPARE(m_calls, QStringList{"open:todo.md"});
        doubleClick(0);
        QCOMPARE(m_view->model().right().directory(), *m_tree / "Right/Archive");
    }

    void barsFollowTheActivePaneAndRunCommands()
    {
        showActive();
        CommanderToolBar *bar = m_view->toolBar();
        const std::vector<fs::path> items{*m_tree / "Left/notes.txt", *m_tree / "Left/photo.jpg"};
        m_view->model().left().setSelection({items.begin(), items.end()});
        bar->button("Open")->click();
        QCOMPARE(m_calls, (QStringList{"open:notes.txt", "open:photo.jpg"}));
        // Copy refs reaches the system clipboard; Paste reads it back into the active pane.
        bar->button("Copy refs")->click();
        QCOMPARE(m_view->statusLine()->statusText(), QStringLiteral("Copied 2 file reference(s)"));
        m_view->model().right().setCursor(std::nullopt);
        m_view->model().setActiveLeft(false);
        QVERIFY(!bar->button("Open")->isEnabled());
        bar->button("Paste")->click();
        const auto *paste = m_view->model().tool()->as<ToolSheet::Transfer>();
        QVERIFY(paste && !paste->move);
        QCOMPARE(paste->sources, items);
        QCOMPARE(paste->destination, *m_tree / "Right");
        m_view->toolHost()->sheet()->reject();
        m_view->model().setActiveLeft(true);
        m_view->functionKeyBar()->button(6)->click();
        const auto *move = m_view->model().tool()->as<ToolSheet::Transfer>();
        QVERIFY(move && move->move);
    }

    void comingBackToTheApplicationRefreshesBothPanes()
    {
        showActive();
        QSignalSpy left(&m_view->model().left(), &PaneModel::listingApplied);
        QSignalSpy right(&m_view->model().right(), &PaneModel::listingApplied);
        // The offscreen platform has no other applications to switch to, so the
        // platform's notifications are played here.
        Q_EMIT qApp->applicationStateChanged(Qt::ApplicationInactive);
        QTest::qWait(50);
        QCOMPARE(left.count() + right.count(), 0);
        Q_EMIT qApp->applicationStateChanged(Qt::ApplicationActive);
        QVERIFY(left.count() > 0 || left.wait());
        QVERIFY(right.count() > 0 || right.wait());
    }

    void everySurfaceTakesTheTheme()
    {
        showActive();
        m_view->model().left().setSelection({*m_tree / "Left/report.pdf"});
        QVERIFY(!m_view->queueView()->isVisible()); // nothing queued
        m_view->model().queue().enqueue("Copy 2 → Archive", [](OperationControl &) {
            throw CommanderError("An item named ‘todo.md’ already exists.");
        });
        QVERIFY(m_view->queueView()->isVisible());
        QTRY_VERIFY(!m_view->model().queue().running());
        const QString folder = qEnvironmentVariable("QUILLORN_SCREENSHOT_DIR");
        for (CommanderTheme theme : allCommanderThemes) {
            m_view->applyTheme(theme);
            const QImage image = m_view->grab().toImage();
            const auto colourAt = [&](QWidget *widget) {
                return image.pixelColor(widget->mapTo(m_view.get(), QPoint(4, 2)));
            };
            QCOMPARE(colourAt(m_view->centralWidget()), colours(theme).window);
            QCOMPARE(colourAt(m_view->queueView()), colours(theme).bar);
            QCOMPARE(colourAt(m_view->toolBar()->button("Search")), colours(theme).button);
            // The failed job's state is drawn in orange; a key's number in the accent, its label not.
            QVERIFY(drawsIn(m_view->queueView()->grab().toImage(), QueueView::failureColour));
            const QList<QLabel *> f5 = m_view->functionKeyBar()->button(5)->findChildren<QLabel *>();
            QVERIFY(drawsIn(f5[0]->grab().toImage(), colours(theme).accent));
            QVERIFY(!drawsIn(f5[1]->grab().toImage(), colours(theme).accent));
            if (!folder.isEmpty()) {
                QString name = rawValue(theme).toLower().replace(QRegularExpression("[^a-z]+"), "-");
                QVERIFY(image.save(QDir(folder).filePath(name + ".png")));
            }
        }
    }

private:
    void showActive()
    {
        m_view->show();
        QApplication::setActiveWindow(m_view.get());
        QVERIFY(QTest::qWaitForWindowActive(m_view.get()));
        if (!QApplication::focusWidget())
            m_view->centralWidget()->setFocus();
    }

    test::TestTree m_home;
    Preferences m_preferences{QString::fromStdString((m_home / "prefs.ini").string())};
    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<CommanderView> m_view;
    QStringList m_calls;
};

QTEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
