#include "app/applicationmenu.h"
#include "app/commanderappdelegate.h"
#include "app/commanderview.h"
#include "app/quillornapp.h"
#include "app/settingswindow.h"
#include "platform/core/preferences.h"
#include "platform/desktop/updater.h"
#include "quillorn/version.h"
#include "testtree.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

// Start-up of the application over a home folder and preferences of its own.
class QuillornAppTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_tree.folder("home/Downloads");
        m_tree.file("home/notes.txt", "n");
        m_tree.folder("elsewhere/inner");
        qputenv("HOME", QByteArray::fromStdString((m_tree / "home").string()));
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((m_tree / "data").string()));
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((m_tree / "config").string()));
    }

    void init()
    {
        qunsetenv("QUILLORN_RELEASE_PREVIEW_LEFT");
        qunsetenv("QUILLORN_RELEASE_PREVIEW_RIGHT");
        qunsetenv("QUILLORN_RELEASE_PREVIEW_THEME");
        m_preferences =
            std::make_unique<Preferences>(QString::fromStdString((m_tree / "prefs.ini").string()));
        m_preferences->remove("appearance.theme");
    }

    void cleanup() { m_preferences.reset(); }

    void theWindow()
    {
        QuillornApp app({}, m_preferences.get());
        QCOMPARE(app.window().windowTitle(), QStringLiteral("Quillorn v") + QString::fromLatin1(kVersion));
        QCOMPARE(app.window().size(), QSize(1180, 740));
        QCOMPARE(app.window().model().left().directory(), m_tree / "home");
        QCOMPARE(app.window().model().right().directory(), m_tree / "home/Downloads");
    }

    void theUpdaterStartsOutsideReleasePreviewsOnly()
    {
        {
            QuillornApp app({}, m_preferences.get());
            QVERIFY(!QuillornApp::releasePreview());
            QVERIFY(app.updater().started());
            QVERIFY(app.menu().checkForUpdates()->isEnabled());
        }
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", ""); // present though empty
        QuillornApp app({}, m_preferences.get());
        QVERIFY(QuillornApp::releasePreview());
        QVERIFY(!app.updater().started());
        QVERIFY(!app.menu().checkForUpdates()->isEnabled());
    }

    void folderArguments_data()
    {
        QTest::addColumn<QByteArray>("argument");
        QTest::addColumn<QByteArray>("expected"); // empty: none
        const QByteArray cwd = QByteArray::fromStdString(fs::current_path().string());
        QTest::newRow("absolute") << QByteArray("/srv/data") << QByteArray("/srv/data");
        QTest::newRow("trailing slash") << QByteArray("/srv/data/") << QByteArray("/srv/data");
        QTest::newRow("dots") << QByteArray("/srv/./x/../data") << QByteArray("/srv/data");
        QTest::newRow("relative") << QByteArray("sub") << cwd + "/sub";
        QTest::newRow("file URL") << QByteArray("file:///srv/My%20Files") << QByteArray("/srv/My Files");
        QTest::newRow("not UTF-8") << QByteArray("/srv/caf\xe9") << QByteArray("/srv/caf\xe9");
        QTest::newRow("an option") << QByteArray("--verbose") << QByteArray();
        QTest::newRow("remote URL") << QByteArray("file://elsewhere.example/srv") << QByteArray();
    }

    void folderArguments()
    {
        QFETCH(QByteArray, argument);
        QFETCH(QByteArray, expected);
        const auto folder = QuillornApp::folderArgument({argument.toStdString()});
        QCOMPARE(folder ? QByteArray::fromStdString(folder->string()) : QByteArray(), expected);
    }

    void aFolderArgumentOpensInTheLeftPane()
    {
        const fs::path folder = m_tree / "elsewhere";
        QuillornApp app({"--", folder.string()}, m_preferences.get());
        QCOMPARE(app.window().model().left().directory(), folder);
        QVERIFY(app.window().model().activeLeft());
    }

    void choosingAThemeRecoloursTheWindowUnlessTheEnvironmentNamesOne()
    {
        {
            QuillornApp app({}, m_preferences.get());
            QCOMPARE(app.window().theme(), CommanderTheme::classicNavy);
            app.showSettings().themePicker()->setCurrentText("Midnight");
            QCOMPARE(app.window().theme(), CommanderTheme::midnight);
            QCOMPARE(m_preferences->text("appearance.theme"), QStringLiteral("Midnight"));
        }
        qputenv("QUILLORN_RELEASE_PREVIEW_THEME", "Forest");
        QuillornApp app({}, m_preferences.get());
        QCOMPARE(app.window().theme(), CommanderTheme::forest);
        app.showSettings().themePicker()->setCurrentText("Arctic Night");
        QCOMPARE(app.window().theme(), CommanderTheme::forest);
    }

    void closingTheWindowPassesTheQuitGuard()
    {
        QuillornApp app({}, m_preferences.get());
        app.window().show();
        CommanderAppDelegate::queue = &app.window().model().queue();
        std::atomic<bool> open{false};
        app.window().model().queue().enqueue("Copy 1 → Photos", [&open](OperationControl &control) {
            while (!open) {
                control.check();
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        QVERIFY(!app.window().close());
        QVERIFY(app.window().isVisible());
        open = true;
        QTRY_VERIFY(!app.window().model().queue().hasWork());
        QVERIFY(app.window().close());
    }

    void ctrlWClosesATabOrElseTheWindow()
    {
        QuillornApp app({}, m_preferences.get());
        app.window().show();
        QApplication::setActiveWindow(&app.window());
        QVERIFY(QTest::qWaitForWindowActive(&app.window()));
        app.window().model().left().newTab();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_W, Qt::ControlModifier);
        QCOMPARE(int(app.window().model().left().tabs().size()), 1);
        QVERIFY(app.window().isVisible());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_W, Qt::ControlModifier);
        QVERIFY(!app.window().isVisible());
    }

    void askingTheApplicationToQuitPassesTheQuitGuard()
    {
        QuillornApp app({}, m_preferences.get());
        app.window().show();
        std::atomic<bool> open{false};
        app.window().model().queue().enqueue("Copy 1 → Photos", [&open](OperationControl &control) {
            while (!open) {
                control.check();
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        // What QCoreApplication::quit() sends, which first asks every window to close.
        QEvent quit(QEvent::Quit);
        QCoreApplication::sendEvent(qApp, &quit);
        QVERIFY(app.window().isVisible());
        QVERIFY(!quit.isAccepted());
        QTRY_VERIFY(QApplication::activeModalWidget() || app.window().findChild<QMessageBox *>("quitAlert"));
        open = true;
        QTRY_VERIFY(!app.window().model().queue().hasWork());
    }

private:
    test::TestTree m_tree;
    std::unique_ptr<Preferences> m_preferences;
};

QTEST_MAIN(QuillornAppTest)
#include "tst_quillornapp.moc"
