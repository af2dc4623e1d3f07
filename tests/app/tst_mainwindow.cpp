#include "app/commanderappdelegate.h"
#include "app/commandertoolbar.h"
#include "app/commanderview.h"
#include "app/functionkeybar.h"
#include "app/keyhandler.h"
#include "app/statusline.h"
#include "model/commanderthemecolours.h"
#include "operations/commandererror.h"
#include "platform/core/preferences.h"
#include "testtree.h"
#include "tools/queueview.h"
#include "tools/toolhost.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSplitter>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

// The whole main window over two real folders: what surrounds the panes, the
// keyboard through the real window, sheets, and the theme on every surface.
// With QUILLORN_SCREENSHOT_DIR set, the theme test also saves a picture of the
// window in each theme there.
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
        for (const char *folder : {"Left/Documents", "Left/Music", "Left/Projects", "Right/Archive"})
            m_tree->folder(folder);
        m_tree->file("Left/notes.txt", std::string(1200, 'n'));
        m_tree->file("Left/photo.jpg", std::string(48'000, 'p'));
        m_tree->file("Left/report.pdf", std::string(230'000, 'r'));
        m_tree->file("Right/todo.md", "- write\n");
        m_tree->file("Right/data.csv", std::string(5000, 'd'));
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((*m_tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((*m_tree / "Right").string()));
        CommanderModelOptions options;
        options.panes.preferences = &m_preferences;
        options.panes.metadataIntervalMs = 3'600'000;
        options.queuePollIntervalMs = 10;
        options.desktop.alert = [](const AlertRequest &) { return -1; };
        options.desktop.prompt = [](const QString &, const QString &) { return std::optional<QString>(); };
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

    void surroundingsAroundThePanes()
    {
        m_view->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_view.get()));
        auto *splitter = m_view->findChild<QSplitter *>("paneSplitter");
        const auto top = [&](QWidget *widget) { return widget->mapTo(m_view.get(), QPoint(0, 0)).y(); };
        QVERIFY(top(m_view->toolBar()) < top(splitter));
        QVERIFY(!m_view->queueView()->isVisible()); // nothing queued
        QVERIFY(top(splitter) < top(m_view->statusLine()));
        QVERIFY(top(m_view->statusLine()) < top(m_view->functionKeyBar()));
        m_view->model().queue().enqueue("File operation", [](OperationControl &) {});
        QVERIFY(m_view->queueView()->isVisible());
        QVERIFY(top(splitter) < top(m_view->queueView()));
        QVERIFY(top(m_view->queueView()) < top(m_view->statusLine()));
        QTRY_VERIFY(!m_view->model().queue().running());
    }

    void theFirstShowRegistersTheQueueAndInstallsOneMonitor()
    {
        CommanderAppDelegate::queue = nullptr;
        QVERIFY(!m_view->keyMonitor());
        m_view->show();
        KeyHandler *monitor = m_view->keyMonitor();
        QVERIFY(monitor);
        QCOMPARE(CommanderAppDelegate::queue.data(), &m_view->model().queue());
        m_view->hide();
        m_view->show();
        QCOMPARE(m_view->keyMonitor(), monitor);
    }

    void keysDriveTheWindowUntilASheetTakesThem()
    {
        showActive();
        m_view->model().left().setCursor(std::nullopt);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down);
        QCOMPARE(m_view->model().left().cursor(), std::optional(*m_tree / "Left/Documents"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY(!m_view->model().activeLeft());
        QCOMPARE(m_view->toolBar()->activePaneLabel()->text(), QStringLiteral("RIGHT PANE ACTIVE"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY(m_view->model().activeLeft());

        // F5 opens the transfer sheet; while it is up, Tab belongs to it.
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_F5);
        QVERIFY(m_view->model().tool());
        QDialog *sheet = m_view->toolHost()->sheet();
        QVERIFY(sheet);
        QTRY_VERIFY(QApplication::activeModalWidget() == sheet);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY(m_view->model().activeLeft());
        QTest::keyClick(sheet, Qt::Key_Escape);
        QVERIFY(!m_view->model().tool());

        // Closing the sheet gives the keyboard back at once.
        QTRY_VERIFY(QApplication::activeModalWidget() == nullptr);
        QTest::keyClick(m_view.get(), Qt::Key_Tab);
        QVERIFY(!m_view->model().activeLeft());
    }

    void functionKeyBarAndToolBarDriveTheModel()
    {
        showActive();
        m_view->model().left().setCursor(*m_tree / "Left/notes.txt");
        m_view->functionKeyBar()->button(5)->click();
        QVERIFY(m_view->toolHost()->sheet());
        m_view->toolHost()->sheet()->reject();
        QVERIFY(!m_view->model().tool());
        m_view->toolBar()->button("New tab")->click();
        QCOMPARE(int(m_view->model().left().tabs().size()), 2);
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
        m_view->resize(1180, 740);
        showActive();
        m_view->model().left().setCursor(*m_tree / "Left/photo.jpg");
        m_view->model().left().setSelection({*m_tree / "Left/report.pdf"});
        m_view->model().queue().enqueue("Copy 2 → Archive", [](OperationControl &) {
            throw CommanderError("An item named ‘todo.md’ already exists.");
        });
        QTRY_VERIFY(!m_view->model().queue().running());
        const QString folder = qEnvironmentVariable("QUILLORN_SCREENSHOT_DIR");
        for (CommanderTheme theme : allCommanderThemes) {
            m_view->applyTheme(theme);
            const CommanderThemeColours palette = colours(theme);
            const QImage image = m_view->grab().toImage();
            const auto colourAt = [&](QWidget *widget, QPoint point) {
                return image.pixelColor(widget->mapTo(m_view.get(), point));
            };
            QCOMPARE(colourAt(m_view->centralWidget(), QPoint(2, 2)), palette.window);
            QCOMPARE(colourAt(m_view->queueView(), QPoint(2, 2)), palette.bar);
            QPushButton *f1 = m_view->functionKeyBar()->button(1);
            QCOMPARE(colourAt(f1, QPoint(4, f1->height() / 2)), palette.button);
            // The failed job's row is drawn, its state in orange.
            const QRect queueArea(m_view->queueView()->mapTo(m_view.get(), QPoint(0, 0)),
                                  m_view->queueView()->size());
            bool orange = false;
            for (int y = queueArea.top(); y <= queueArea.bottom() && !orange; ++y)
                for (int x = queueArea.left(); x <= queueArea.right() && !orange; ++x)
                    orange = image.pixelColor(x, y) == QueueView::failureColour;
            QVERIFY(orange);
            QToolButton *search = m_view->toolBar()->button("Search");
            QCOMPARE(colourAt(search, QPoint(4, search->height() / 2)), palette.button);
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
};

QTEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
