#include "model/commandermodel.h"
#include "panefixture.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QTemporaryDir>
#include <QTest>
#include <fstream>

using namespace quillorn;
namespace fs = std::filesystem;
using Paths = std::vector<fs::path>;

enum Command { F2Rename = 2, F3View, F4Edit, F6Move = 6, F7NewFolder, F8Trash, F10Quit = 10 };

// Commands against real folders in a home of the test's own; the desktop's
// stand-ins log what the model asked and answer as told.
class CommanderModelTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_data;
    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<CommanderModel> m_model;
    fs::path m_home;
    int m_fresh = 0;
    QStringList m_calls;
    AlertRequest m_alert;
    int m_alertAnswer = 0;
    std::function<void()> m_duringAlert;
    QList<std::optional<QString>> m_answers;

    // A new model, true once both panes are listed.
    bool remake()
    {
        CommanderModelOptions options;
        options.desktop.alert = [this](const AlertRequest &alert) {
            m_calls << "alert:" + alert.message;
            m_alert = alert;
            if (m_duringAlert)
                m_duringAlert();
            return m_alertAnswer;
        };
        options.desktop.prompt = [this](const QString &title, const QString &value) {
            m_calls << "prompt:" + title + ":" + value;
            return m_answers.isEmpty() ? std::nullopt : m_answers.takeFirst();
        };
        options.desktop.preview = [this](const fs::path &item, std::function<void(const QString &)> failed) {
            m_calls << "preview:" + QString::fromStdString(item.filename().string());
            failed("Permission denied");
        };
        options.desktop.requestQuit = [this] { m_calls << "quit"; };
        options.desktop.openFile = [this](const fs::path &file) {
            m_calls << "open:" + QString::fromStdString(file.filename().string());
        };
        options.panes.preferences = m_preferences.get();
        options.panes.metadataIntervalMs = 60'000;
        options.queuePollIntervalMs = 10;
        m_model = std::make_unique<CommanderModel>(std::move(options));
        return QTest::qWaitFor([&] { return !m_model->left().loading() && !m_model->right().loading(); },
                               5000);
    }

    void select(Paths tagged, std::optional<fs::path> cursor)
    {
        m_model->left().setSelection({tagged.begin(), tagged.end()});
        m_model->left().setCursor(std::move(cursor));
    }

    // The left pane's cursor once the last job has ended and its item, if it
    // made one, is listed.
    std::optional<fs::path> cursorAfterTheLastJob(const fs::path &made = {})
    {
        PaneModel &left = m_model->left();
        const bool ended = QTest::qWaitFor(
            [&] {
                return !m_model->queue().hasWork() && !left.loading() &&
                       (made.empty() || left.visibleIndexOf(made));
            },
            5000);
        if (!ended || stateOfLast() != "Complete")
            return fs::path("job: " + stateOfLast().toStdString());
        return left.cursor();
    }

    QString stateOfLast() const
    {
        return m_model->queue().items().empty() ? QString() : m_model->queue().items().back().stateText();
    }

private Q_SLOTS:
    void init()
    {
        m_model.reset();
        qputenv("XDG_DATA_HOME", m_data.path().toUtf8()); // the Trash goes there
        m_tree = std::make_unique<test::TestTree>();
        m_home = m_tree->folder("home/Downloads").parent_path();
        for (const char *name : {"a", "b", "c"})
            m_tree->file("home/" + std::string(name) + ".txt", name);
        qputenv("HOME", QByteArray::fromStdString(m_home.string()));
        qunsetenv("QUILLORN_RELEASE_PREVIEW_LEFT");
        qunsetenv("QUILLORN_RELEASE_PREVIEW_RIGHT");
        qunsetenv("XDG_CONFIG_HOME"); // the desktop's folders are then read below the test's home
        m_preferences =
            std::make_unique<Preferences>(QString::fromStdString((*m_tree / "prefs.ini").string()));
        m_calls.clear();
        m_alertAnswer = 0;
        m_duringAlert = nullptr;
        QVERIFY(remake());
    }

    void startsOnHomeAndDownloadsUnlessBothPreviewFoldersAreGiven()
    {
        QCOMPARE(m_model->left().directory(), m_home);
        QCOMPARE(m_model->right().directory(), m_home / "Downloads");
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", "no/such/preview"); // relative, and not checked
        QVERIFY(remake());
        QCOMPARE(m_model->left().directory(), m_home); // one alone is ignored
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString(m_home.string()));
        QVERIFY(remake());
        QCOMPARE(m_model->left().directory(), fs::current_path() / "no/such/preview");
        QVERIFY(m_model->left().error());
    }

    // The desktop's Downloads folder as it names it in the user's language, else
    // ~/Downloads, else home: a missing folder is never the first thing shown.
    void theRightPaneStartsOnTheDesktopsDownloadsFolderElseHome()
    {
        const fs::path config = m_tree->folder("config");
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(config.string()));
        const auto startsOn = [&](const fs::path &expected) {
            m_model.reset();
            m_preferences = std::make_unique<Preferences>(
                QString::fromStdString((*m_tree / ("fresh-" + std::to_string(m_fresh++) + ".ini")).string()));
            QVERIFY(remake());
            QCOMPARE(m_model->right().directory(), expected);
            QVERIFY(!m_model->right().error());
        };
        const fs::path localised = m_home / "Загрузки";
        std::ofstream(config / "user-dirs.dirs") << "XDG_DESKTOP_DIR=\"$HOME/Рабочий стол\"\n"
                                                 << "XDG_DOWNLOAD_DIR=\"$HOME/Загрузки\"\n";
        startsOn(m_home / "Downloads"); // recorded but not made yet
        fs::create_directory(localised);
        startsOn(localised);
        fs::remove(localised);
        fs::remove(m_home / "Downloads");
        startsOn(m_home);
        fs::remove(config / "user-dirs.dirs");
        startsOn(m_home);
    }

    void renameActsOnTheTaggedItemNotTheCursorAndACancelDoesNothing()
    {
        select({m_home / "b.txt"}, m_home / "a.txt");
        m_answers = {std::nullopt, QString("renamed b.txt")};
        m_model->perform(F2Rename);
        QVERIFY(m_model->queue().items().empty());
        m_model->perform(F2Rename);
        QCOMPARE(m_calls, QStringList(2, "prompt:Rename:b.txt"));
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(), QString("Complete"), 5000);
        QCOMPARE(test::TestTree::read(m_home / "renamed b.txt"), std::string("b"));
        QVERIFY(!fs::exists(m_home / "b.txt") && fs::exists(m_home / "a.txt"));
    }

    void renameKeepsTheBytesOfAnUntouchedName()
    {
        const fs::path odd = m_tree->file("home/caf\xe9.txt", "latin-1 name");
        const QString editable = QString::fromUtf16(u"caf\xdce9.txt"); // the byte 0xe9 as its placeholder
        QTRY_VERIFY(m_model->left().visibleIndexOf(odd));
        select({}, odd);
        m_answers = {editable, editable + "X", QString::fromUtf16(u"caf\xdce9\u00e9.txt")};
        m_model->perform(F2Rename);
        QCOMPARE(m_calls, QStringList{"prompt:Rename:" + editable});
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(), "Failed: An item named ‘caf\ufffd.txt’ already exists.",
                                  5000);
        QVERIFY(fs::exists(odd));

        // Only what was typed changes: the byte outside UTF-8 stays as it was.
        m_model->perform(F2Rename);
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(), QString("Complete"), 5000);
        const fs::path renamed = m_home / "caf\xe9.txtX";
        QCOMPARE(test::TestTree::read(renamed), std::string("latin-1 name"));
        QTRY_VERIFY(m_model->left().visibleIndexOf(renamed));
        select({}, renamed);
        m_model->perform(F2Rename);
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(), QString("Complete"), 5000);
        QVERIFY(fs::exists(m_home / "caf\xe9\xc3\xa9.txt") && !fs::exists(renamed));
    }

    void trashAsksFirstAndStopsAtTheFirstFailure()
    {
        select({m_home / "a.txt", m_home / "b.txt", m_home / "c.txt"}, std::nullopt);
        m_alertAnswer = 1; // Cancel
        m_model->perform(F8Trash);
        QVERIFY(m_model->queue().items().empty());
        QCOMPARE(m_calls, QStringList{"alert:Delete selected items?"});
        QVERIFY(m_alert.informativeText.startsWith(
            "Move 3 selected item(s) to the Trash? If Trash is unavailable"));
        // The second item vanishes after the user confirmed, before the job reaches it.
        m_alertAnswer = 0;
        m_duringAlert = [&] { fs::remove(m_home / "b.txt"); };
        m_model->perform(F8Trash);
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(),
                                  "Failed: The item no longer exists: " +
                                      QString::fromStdString((m_home / "b.txt").string()),
                                  5000);
        QVERIFY(fs::exists(m_data.path().toStdString() / fs::path("Trash/files/a.txt")));
        QCOMPARE(test::TestTree::read(m_home / "c.txt"), std::string("c"));
    }

    // Home lists Downloads/, a.txt, b.txt, c.txt; the right pane shows Downloads.
    void theCursorLandsOnTheItemACommandMadeInItsOwnFolder()
    {
        using Cursor = std::optional<fs::path>;
        select({}, m_home / "b.txt");
        m_answers = {QString("x.txt")};
        m_model->perform(F2Rename);
        QCOMPARE(cursorAfterTheLastJob(m_home / "x.txt"), Cursor(m_home / "x.txt"));
        m_answers = {QString("New Folder")};
        m_model->perform(F7NewFolder);
        QCOMPARE(cursorAfterTheLastJob(m_home / "New Folder"), Cursor(m_home / "New Folder"));
        // Copy and move within one folder, under a free name the engine picks.
        const auto transfer = [&](const char *source, bool move) {
            m_model->queue().enqueue("Transfer",
                                     TransferJob{{m_home / source}, m_home, move, ConflictPolicy::keepBoth});
        };
        transfer("a.txt", false);
        QCOMPARE(cursorAfterTheLastJob(m_home / "a (2).txt"), Cursor(m_home / "a (2).txt"));
        transfer("x.txt", true);
        QCOMPARE(cursorAfterTheLastJob(m_home / "x (2).txt"), Cursor(m_home / "x (2).txt"));
        QVERIFY(!fs::exists(m_home / "x.txt"));
        // A failed rename moves nothing.
        m_answers = {QString("c.txt")};
        select({}, m_home / "a.txt");
        m_model->perform(F2Rename);
        QCOMPARE(cursorAfterTheLastJob(), Cursor("job: Failed: An item named ‘c.txt’ already exists."));
        QCOMPARE(m_model->left().cursor(), Cursor(m_home / "a.txt"));
    }

    // Home lists Downloads/, a.txt ... e.txt.
    void afterTrashTheCursorIsOnTheNearestRemainingItem()
    {
        using Cursor = std::optional<fs::path>;
        m_tree->file("home/d.txt", "d");
        m_tree->file("home/e.txt", "e");
        QTRY_VERIFY(m_model->left().visibleIndexOf(m_home / "e.txt"));
        select({}, m_home / "b.txt");
        m_model->perform(F8Trash);
        QCOMPARE(cursorAfterTheLastJob(), Cursor(m_home / "c.txt")); // the next one
        select({m_home / "a.txt"}, m_home / "d.txt");
        m_model->perform(F8Trash);
        QCOMPARE(cursorAfterTheLastJob(), Cursor(m_home / "d.txt")); // not on a trashed item: stays
        select({m_home / "d.txt", m_home / "e.txt"}, m_home / "d.txt");
        m_model->perform(F8Trash);
        QCOMPARE(cursorAfterTheLastJob(), Cursor(m_home / "c.txt")); // none stays below: the one above
        QCOMPARE(test::namesOf(m_model->left().visible()), (QStringList{"Downloads", "c.txt"}));
    }

    void quitIsRefusedWhileWorkRemains()
    {
        auto release = std::make_shared<std::atomic<bool>>(false);
        m_model->queue().enqueue("Long", [release](OperationControl &control) {
            while (!*release) {
                control.check();
                QThread::msleep(2);
            }
        });
        m_model->perform(F10Quit);
        *release = true;
        QTRY_VERIFY_WITH_TIMEOUT(!m_model->queue().hasWork(), 5000);
        m_model->perform(F10Quit);
        QCOMPARE(m_calls, (QStringList{"alert:Operations in progress", "quit"}));
    }

    void commandsTakeTheCursorItemOrTheFirstTaggedInVisibleOrder()
    {
        select({}, m_home / "b.txt");
        m_model->perform(F6Move);
        const auto *transfer = m_model->tool().value().as<ToolSheet::Transfer>();
        QVERIFY(transfer && transfer->move);
        QCOMPARE(transfer->sources, Paths{m_home / "b.txt"});
        QCOMPARE(transfer->destination, m_home / "Downloads");
        select({m_home / "c.txt", m_home / "b.txt"}, std::nullopt);
        m_model->perform(F4Edit);
        QCOMPARE(m_model->tool().value().as<ToolSheet::Editor>()->file, m_home / "b.txt");
        m_model->perform(F3View);
        QCOMPARE(m_calls, (QStringList{"preview:b.txt", "alert:Cannot preview"}));
        QCOMPARE(m_alert.informativeText, QString("Permission denied"));
    }
    void openEntersFoldersBrowsesZipsByAnyCaseAndHandsOtherFilesToTheDesktop()
    {
        const auto entry = [&](const char *name, bool folder) {
            return FileEntry(m_home / name, folder, 0, FileEntry::distantPast());
        };
        m_model->open(entry("Archive.ZIP", false));
        QCOMPARE(m_model->tool().value().as<ToolSheet::Archive>()->archive, m_home / "Archive.ZIP");
        m_model->open(entry("notes.zip.txt", false));
        QCOMPARE(m_calls, QStringList{"open:notes.zip.txt"});
        m_model->open(entry("Downloads", true));
        QCOMPARE(m_model->left().directory(), m_home / "Downloads");
    }
};

QTEST_GUILESS_MAIN(CommanderModelTest)
#include "tst_commandermodel.moc"
