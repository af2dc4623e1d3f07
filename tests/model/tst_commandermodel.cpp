#include "model/commandermodel.h"
#include "panefixture.h"
#include "platform/core/preferences.h"
#include "platform/posix/trash.h"
#include "scopedmount.h"
#include "testtree.h"

#include <QTemporaryDir>
#include <QTest>
#include <fstream>
#include <unistd.h>

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

    // The last job's state once the queue has nothing left to do.
    QString lastJobEnded() const
    {
        if (!QTest::qWaitFor([&] { return !m_model->queue().hasWork(); }, 10000))
            return "still running: " + stateOfLast();
        return stateOfLast();
    }

    // The Trash of the test's own tree, so that it holds only what the test put there.
    fs::path ownTrash() const
    {
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((*m_tree / "data").string()));
        return *m_tree / "data/Trash";
    }

    void rename(const fs::path &item, const QString &name)
    {
        QTRY_VERIFY(m_model->left().visibleIndexOf(item));
        select({}, item);
        m_answers = {name};
        m_model->perform(F2Rename);
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

    void theTrashSheetsCommandsAskWhereTheyMustAndQueueOneJobEach()
    {
        const fs::path trash = ownTrash();
        const fs::path a = trashItem(m_home / "a.txt"), b = trashItem(m_home / "b.txt");
        m_tree->file("home/a.txt", "newer");
        QVERIFY(m_model->restoreFromTrash({b}, {})); // no name taken: nothing to ask
        QCOMPARE(lastJobEnded(), QString("Complete"));
        QVERIFY(m_calls.isEmpty());
        QCOMPARE(test::TestTree::read(m_home / "b.txt"), std::string("b"));

        m_alertAnswer = 1; // Cancel
        QVERIFY(!m_model->restoreFromTrash({a}, {m_home / "a.txt"}));
        QVERIFY(!m_model->deleteFromTrash({a}));
        QVERIFY(!m_model->emptyTrash({a}));
        QCOMPARE(m_calls, (QStringList{"alert:An item named ‘a.txt’ already exists.",
                                       "alert:Delete ‘a.txt’ for good?", "alert:Empty the Trash?"}));
        QCOMPARE(m_model->queue().items().size(), std::size_t(1));

        m_alertAnswer = 0; // Keep both
        QVERIFY(m_model->restoreFromTrash({a}, {m_home / "a.txt"}));
        QCOMPARE(lastJobEnded(), QString("Complete"));
        QCOMPARE(test::TestTree::read(m_home / "a (2).txt"), std::string("a"));
        QCOMPARE(test::TestTree::read(m_home / "a.txt"), std::string("newer"));
        QVERIFY(m_model->emptyTrash({trashItem(m_home / "c.txt")}));
        QCOMPARE(lastJobEnded(), QString("Complete"));
        QVERIFY(test::TestTree::names(trash / "files").empty() &&
                test::TestTree::names(trash / "info").empty());
        QCOMPARE(m_model->queue().items().back().title, QString("Empty Trash"));
    }

    // Home lists Downloads/, a.txt, b.txt, c.txt; the right pane shows Downloads.
    void undoPutsBackEachKindOfJobLastFirst()
    {
        const fs::path downloads = m_home / "Downloads", trash = ownTrash();
        const fs::path odd = m_tree->file("home/caf\xe9.txt", "latin-1"); // back under its very bytes
        m_model->undo();
        QVERIFY(m_model->queue().items().empty()); // nothing to undo yet

        rename(m_home / "a.txt", "x.txt");
        QCOMPARE(lastJobEnded(), "Complete");
        QCOMPARE(m_model->status(), "Ctrl+Z: undo rename ‘a.txt’ → ‘x.txt’");
        m_answers = {QString("New Folder")};
        m_model->perform(F7NewFolder);
        QCOMPARE(lastJobEnded(), "Complete");
        QTRY_VERIFY(m_model->left().visibleIndexOf(odd));
        select({}, odd);
        m_model->perform(F8Trash);
        QCOMPARE(lastJobEnded(), "Complete");
        m_model->queue().enqueue("Copy", TransferJob{{m_home / "b.txt", m_home / "c.txt"}, downloads});
        QCOMPARE(lastJobEnded(), "Complete");
        m_tree->file("home/Downloads/x.txt", "taken"); // the move takes a free name beside it
        m_model->queue().enqueue("Move",
                                 TransferJob{{m_home / "x.txt"}, downloads, true, ConflictPolicy::keepBoth});
        QCOMPARE(lastJobEnded(), "Complete");
        QCOMPARE(m_model->status(), "Ctrl+Z: undo move of ‘x (2).txt’ to ‘Downloads’");

        const std::pair<std::function<bool()>, QString> undos[] = {
            {[&] {
                 return test::TestTree::read(m_home / "x.txt") == "a" && !fs::exists(downloads / "x (2).txt");
             },
             "Undone: move of ‘x (2).txt’ to ‘Downloads’ • Ctrl+Z: undo copy of 2 items to ‘Downloads’"},
            {[&] { return test::TestTree::names(downloads) == std::vector<std::string>{"x.txt"}; },
             "Undone: copy of 2 items to ‘Downloads’ • Ctrl+Z: undo trash of ‘caf\ufffd.txt’"},
            {[&] { return test::TestTree::read(odd) == "latin-1"; },
             "Undone: trash of ‘caf\ufffd.txt’ • Ctrl+Z: undo new folder ‘New Folder’"},
            {[&] { return !fs::exists(m_home / "New Folder"); },
             "Undone: new folder ‘New Folder’ • Ctrl+Z: undo rename ‘a.txt’ → ‘x.txt’"},
            {[&] { return test::TestTree::read(m_home / "a.txt") == "a" && !fs::exists(m_home / "x.txt"); },
             "Undone: rename ‘a.txt’ → ‘x.txt’"},
        };
        for (const auto &[done, status] : undos) {
            m_model->undo();
            QCOMPARE(lastJobEnded(), "Complete");
            QVERIFY2(done(), qPrintable(status));
            QCOMPARE(m_model->status(), status);
        }
        QVERIFY(!m_model->canUndo()); // and the undos are not undone themselves
        QCOMPARE(cursorAfterTheLastJob(m_home / "a.txt"),
                 std::optional(m_home / "a.txt")); // what it put back
        // The copies went to the Trash, where the restored item no longer is.
        QCOMPARE(test::TestTree::names(trash / "files"), (std::vector<std::string>{"b.txt", "c.txt"}));
        QCOMPARE(test::TestTree::names(trash / "info"),
                 (std::vector<std::string>{"b.txt.trashinfo", "c.txt.trashinfo"}));
    }

    // A multi-rename that swapped two names (a cycle) and shifted a third along
    // a chain is put back whole, through a hidden name for the cycle.
    void undoOfAMultiRenamePutsCyclesAndChainsBack()
    {
        m_model->queue().enqueue(
            "Multi-rename 3 item(s)",
            MultiRenameJob{m_home, {{"a.txt", "b.txt"}, {"b.txt", "a.txt"}, {"c.txt", "d.txt"}}});
        QCOMPARE(lastJobEnded(), "Complete");
        QCOMPARE(test::TestTree::read(m_home / "a.txt"), "b");
        QCOMPARE(m_model->status(), "Ctrl+Z: undo rename of 3 items");
        m_model->undo();
        QCOMPARE(lastJobEnded(), "Complete");
        QCOMPARE(m_model->status(), "Undone: rename of 3 items");
        QCOMPARE(test::TestTree::read(m_home / "a.txt"), "a");
        QCOMPARE(test::TestTree::read(m_home / "b.txt"), "b");
        QCOMPARE(test::TestTree::read(m_home / "c.txt"), "c");
        QCOMPARE(test::TestTree::names(m_home),
                 (std::vector<std::string>{"Downloads", "a.txt", "b.txt", "c.txt"}));
    }

    // Each job completes, then something it left changes: its undo refuses,
    // touching nothing, and Ctrl+Z goes on to the job before.
    void undoRefusesWhatChangedSince()
    {
        const fs::path downloads = m_home / "Downloads", trash = ownTrash();
        const auto write = [](const fs::path &file, const char *text) { std::ofstream(file) << text; };
        m_answers = {QString("First")};
        m_model->perform(F7NewFolder);
        QCOMPARE(lastJobEnded(), "Complete");
        const auto transfer = [&](const char *name, bool move) {
            m_model->queue().enqueue("Transfer", TransferJob{{m_home / name}, downloads, move});
        };
        const struct {
            std::function<void()> job, change;
            QString failure;
            std::function<bool()> kept;
        } cases[] = {
            {[&] { rename(m_home / "a.txt", "x.txt"); }, [&] { write(m_home / "x.txt", "edited"); },
             "‘x.txt’ changed after it was renamed, so its name was not put back.",
             [&] { return fs::exists(m_home / "x.txt") && !fs::exists(m_home / "a.txt"); }},
            {[&] { rename(m_home / "b.txt", "y.txt"); }, [&] { write(m_home / "b.txt", "new b"); },
             "An item named ‘b.txt’ already exists.",
             [&] { return test::TestTree::read(m_home / "y.txt") == "b"; }},
            {[&] {
                 m_answers = {QString("Kept")};
                 m_model->perform(F7NewFolder);
             },
             [&] { m_tree->file("home/Kept/inside"); }, "‘Kept’ is no longer empty, so it was not removed.",
             [&] { return fs::exists(m_home / "Kept/inside"); }},
            {[&] {
                 select({}, m_home / "c.txt");
                 m_model->perform(F8Trash);
             },
             [&] { write(m_home / "c.txt", "new c"); }, "An item named ‘c.txt’ already exists.",
             [&] { return test::TestTree::read(trash / "files/c.txt") == "c"; }},
            {[&] { transfer("y.txt", false); }, [&] { write(downloads / "y.txt", "edited"); },
             "‘y.txt’ changed after it was copied, so it was not moved to the Trash.",
             [&] { return test::TestTree::read(downloads / "y.txt") == "edited"; }},
            {[&] { transfer("x.txt", true); }, [&] { write(downloads / "x.txt", "edited again"); },
             "‘x.txt’ changed after it was moved, so it was not moved back.",
             [&] { return fs::exists(downloads / "x.txt") && !fs::exists(m_home / "x.txt"); }},
        };
        for (const auto &each : cases) {
            each.job();
            QCOMPARE(lastJobEnded(), "Complete");
            each.change();
            m_model->undo();
            QCOMPARE(lastJobEnded(), "Failed: " + each.failure);
            QVERIFY2(each.kept(), qPrintable(each.failure));
            QCOMPARE(m_model->status(), "Not undone: " + each.failure + " • Ctrl+Z: undo new folder ‘First’");
        }
        m_model->undo();
        QCOMPARE(lastJobEnded(), "Complete");
        QVERIFY(!fs::exists(m_home / "First"));
    }

    // The move copied across volumes under a free name; its undo copies it back
    // under its own and sends the item it leaves to that volume's Trash.
    void undoOfAMoveAcrossVolumesPutsTheNameBackToo()
    {
        if (!test::runningAsRoot())
            QSKIP("mounting a test volume needs root");
        ownTrash();
        const test::ScopedMount volume("tmpfs", m_tree->folder("volume"), "size=4m");
        m_tree->file("volume/a.txt", "another a");
        m_model->queue().enqueue(
            "Move", TransferJob{{m_home / "a.txt"}, volume.path(), true, ConflictPolicy::keepBoth});
        QCOMPARE(lastJobEnded(), "Complete");
        QCOMPARE(test::TestTree::read(volume.path() / "a (2).txt"), "a");
        m_model->undo();
        QCOMPARE(lastJobEnded(), "Complete");
        QCOMPARE(test::TestTree::read(m_home / "a.txt"), "a");
        QVERIFY(!fs::exists(m_home / "a (2).txt"));
        const std::string own = ".Trash-" + std::to_string(::geteuid());
        QCOMPARE(test::TestTree::read(volume.path() / own / "files/a (2).txt"), "a");
        QCOMPARE(test::TestTree::names(volume.path()), (std::vector<std::string>{own, "a.txt"}));
    }
};

QTEST_GUILESS_MAIN(CommanderModelTest)
#include "tst_commandermodel.moc"
