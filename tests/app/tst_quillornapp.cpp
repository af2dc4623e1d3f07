#include "app/applicationmenu.h"
#include "app/commanderappdelegate.h"
#include "app/commanderview.h"
#include "app/commandline.h"
#include "app/quillornapp.h"
#include "app/settingswindow.h"
#include "model/panemodel.h"
#include "platform/core/preferences.h"
#include "platform/desktop/updater.h"
#include "services/transferqueue.h"
#include "testtree.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QMessageBox>
#include <QTest>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

using namespace quillorn;
namespace fs = std::filesystem;

// Start-up, theme setting and quit guard, over a home folder and preferences of the test's own.
class QuillornAppTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_tree.folder("home/Downloads");
        m_tree.folder("elsewhere/inner");
        qputenv("HOME", QByteArray::fromStdString((m_tree / "home").string()));
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((m_tree / "data").string()));
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((m_tree / "config").string()));
    }

    void init()
    {
        for (const char *name : {"LEFT", "RIGHT", "THEME"})
            qunsetenv(QByteArray("QUILLORN_RELEASE_PREVIEW_") + name);
        m_prefs = std::make_unique<Preferences>(QString::fromStdString((m_tree / "prefs.ini").string()));
        m_prefs->remove("appearance.theme");
        CommanderAppDelegate::queue = nullptr;
        CommanderAppDelegate::unsavedEditor = false;
        m_open = false;
    }
    void startsInHomeAndDownloadsOrTheFolderGivenWithTheUpdaterOutsidePreviews()
    {
        {
            QuillornApp app({}, m_prefs.get());
            QCOMPARE(app.window().model().left().directory(), m_tree / "home");
            QCOMPARE(app.window().model().right().directory(), m_tree / "home/Downloads");
            QVERIFY(app.updater().started());
            QVERIFY(app.menu().checkForUpdates()->isEnabled());
            app.window().show();
            QApplication::setActiveWindow(&app.window());
            QVERIFY(QTest::qWaitForWindowActive(&app.window()));
            QTest::keyClick(&app.window(), Qt::Key_W, Qt::ControlModifier); // one tab: closes the window
            QVERIFY(!app.window().isVisible());
        }
        {
            // Folders in new tabs after the saved one; files in their folder's
            // tab, two of one folder tagged with the cursor on the first.
            m_tree.file("elsewhere/a.txt");
            m_tree.file("elsewhere/b.txt");
            QuillornApp app(
                {m_tree / "elsewhere/inner", m_tree / "elsewhere/b.txt", m_tree / "elsewhere/a.txt"},
                m_prefs.get());
            const PaneModel &left = app.window().model().left();
            QCOMPARE(left.tabs(), (std::vector<fs::path>{m_tree / "home", m_tree / "elsewhere/inner",
                                                         m_tree / "elsewhere"}));
            QCOMPARE(left.directory(), m_tree / "elsewhere");
            QTRY_COMPARE(left.cursor(), std::optional(m_tree / "elsewhere/b.txt"));
            QCOMPARE(left.selection(),
                     (std::set<fs::path>{m_tree / "elsewhere/a.txt", m_tree / "elsewhere/b.txt"}));
        }
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", ""); // present though empty
        QuillornApp app({}, m_prefs.get());
        QVERIFY(!app.updater().started());
        QVERIFY(!app.menu().checkForUpdates()->isEnabled());
    }

    void commandLineItemsAreNormalisedAsBytesOrRefused()
    {
        const fs::path here = m_tree.root();
        const std::pair<std::vector<std::string>, std::string> cases[] = {
            {{(m_tree / "elsewhere/./inner/../").string()}, (m_tree / "elsewhere").string()},
            {{"elsewhere"}, (m_tree / "elsewhere").string()},
            {{"-platform", "offscreen", "--", "-odd"},
             ""}, // the toolkit's option passed over; "-odd" is missing
            {{"file://" + (m_tree / "home").string()}, (m_tree / "home").string()},
            {{"sftp://host/srv"}, ""},
            {{"file://elsewhere.example/srv"}, ""},
        };
        for (const auto &[arguments, expected] : cases) {
            const CommandLine line = CommandLine::parse(arguments, here);
            QCOMPARE(line.exitNow, expected.empty());
            QCOMPARE(line.exitNow ? line.status : 0, expected.empty() ? 2 : 0);
            QCOMPARE(line.targets.empty() ? std::string() : line.targets.front().string(), expected);
        }
        m_tree.folder("caf\xe9"); // not UTF-8: the bytes come through
        QCOMPARE(CommandLine::parse({"caf\xe9"}, here).targets, std::vector<fs::path>{m_tree / "caf\xe9"});
        QVERIFY(CommandLine::parse({"--help"}, here).output.startsWith("Usage: quillorn"));
    }

    void choosingAThemeRecoloursTheWindowUnlessTheEnvironmentNamesOne()
    {
        {
            QuillornApp app({}, m_prefs.get());
            QCOMPARE(app.window().theme(), CommanderTheme::classicNavy);
            app.showSettings().themePicker()->setCurrentText("Midnight");
            QCOMPARE(app.window().theme(), CommanderTheme::midnight);
            m_prefs->sync();
            QCOMPARE(Preferences(m_prefs->fileName()).text("appearance.theme"), QStringLiteral("Midnight"));
        }
        qputenv("QUILLORN_RELEASE_PREVIEW_THEME", "Forest");
        QuillornApp app({}, m_prefs.get());
        QCOMPARE(app.window().theme(), CommanderTheme::forest);
        app.showSettings().themePicker()->setCurrentText("Arctic Night");
        QCOMPARE(app.window().theme(), CommanderTheme::forest); // the environment wins
        m_prefs->setText("appearance.theme", "garbage");
        QCOMPARE(SettingsWindow(*m_prefs, app.updater()).themePicker()->currentIndex(), 0);
    }

    void quittingWaitsForTheQueueWithoutCancellingIt()
    {
        QuillornApp app({}, m_prefs.get());
        CommanderView &window = app.window();
        window.show();
        window.model().queue().enqueue("Copy 1 → Photos", untilOpen());
        // What QCoreApplication::quit() sends, which first asks every window to close.
        QEvent quit(QEvent::Quit);
        QCoreApplication::sendEvent(qApp, &quit);
        QVERIFY(!quit.isAccepted() && window.isVisible());
        auto *alert = window.findChild<QMessageBox *>("quitAlert");
        QVERIFY(alert && alert->isVisible());
        QCOMPARE(alert->text() + "|" + alert->informativeText(),
                 "File operations are still queued or running|Finish or cancel operations before quitting. "
                 "Completed items will remain in place.");
        QVERIFY(window.model().queue().running()); // the guard neither cancels nor waits
        alert->buttons().first()->click();         // "Keep running"
        m_open = true;
        QTRY_VERIFY(!window.model().queue().hasWork());
        QVERIFY(window.close());
    }

    void unsavedEditsWinOverTheQueueAndAQueueThatIsGoneHasNoWork()
    {
        auto queue = std::make_unique<TransferQueue>(nullptr, 10);
        CommanderAppDelegate::queue = queue.get();
        queue->enqueue(QStringLiteral("Copy"), untilOpen());
        CommanderAppDelegate::unsavedEditor = true;
        QString shown;
        const auto decide = [&] {
            return CommanderAppDelegate::applicationShouldTerminate(
                [&](const AlertRequest &alert) { shown = alert.message + "|" + alert.informativeText; });
        };
        QCOMPARE(decide(), CommanderAppDelegate::TerminateReply::terminateCancel);
        QCOMPARE(shown, "The editor has unsaved changes|Save or discard your edits before quitting.");
        m_open = true;
        queue.reset(); // held weakly: a queue that is gone has no work
        CommanderAppDelegate::unsavedEditor = false;
        QCOMPARE(decide(), CommanderAppDelegate::TerminateReply::terminateNow);
    }

private:
    // A job that runs until the test lets it finish.
    QueueItem::Work untilOpen()
    {
        return [this](OperationControl &control) {
            while (!m_open) {
                control.check();
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        };
    }

    test::TestTree m_tree;
    std::atomic<bool> m_open{false};
    std::unique_ptr<Preferences> m_prefs;
};

QTEST_MAIN(QuillornAppTest)
#include "tst_quillornapp.moc"
