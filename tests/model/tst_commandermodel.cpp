#include "model/commandermodel.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QTemporaryDir>
#include <QTest>

#include <deque>
#include <filesystem>
#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;
using Paths = std::vector<fs::path>;

namespace {

enum Command { F2Rename = 2, F3View, F4Edit, F5Copy, F6Move, F7NewFolder, F8Trash, F10Quit = 10 };

// Stand-ins for the desktop: they record what the model asked and answer as told.
struct FakeDesktop {
    std::vector<AlertRequest> alerts;
    int alertAnswer = 0;
    std::function<void()> duringAlert;
    std::vector<std::pair<QString, QString>> prompts;
    std::deque<std::optional<QString>> promptAnswers;
    Paths opened, previewed, clipboard;
    QString previewFailure;
    int quitRequests = 0;

    DesktopServices services()
    {
        DesktopServices desktop;
        desktop.alert = [this](const AlertRequest &alert) {
            alerts.push_back(alert);
            if (duringAlert)
                duringAlert();
            return alertAnswer;
        };
        desktop.prompt = [this](const QString &title, const QString &value) {
            prompts.emplace_back(title, value);
            if (promptAnswers.empty())
                return std::optional<QString>();
            const std::optional<QString> answer = promptAnswers.front();
            promptAnswers.pop_front();
            return answer;
        };
        desktop.openFile = [this](const fs::path &file) { opened.push_back(file); };
        desktop.preview = [this](const fs::path &item, std::function<void(const QString &)> failed) {
            previewed.push_back(item);
            if (!previewFailure.isEmpty())
                failed(previewFailure);
        };
        desktop.writeClipboard = [this](const Paths &items) { clipboard = items; };
        desktop.readClipboard = [this] { return clipboard; };
        desktop.requestQuit = [this] { ++quitRequests; };
        return desktop;
    }
};

bool listed(CommanderModel &model)
{
    return QTest::qWaitFor([&] { return !model.left().loading() && !model.right().loading(); }, 5000);
}

} // namespace

// Commands run against real folders in a home of the test's own, with the
// Trash below a data folder of its own.
class CommanderModelTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_data;
    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<CommanderModel> m_model;
    FakeDesktop m_desktop;
    fs::path m_home;

    std::unique_ptr<CommanderModel> makeModel()
    {
        CommanderModelOptions options;
        options.desktop = m_desktop.services();
        options.panes.preferences = m_preferences.get();
        options.panes.metadataIntervalMs = 60'000;
        options.queuePollIntervalMs = 10;
        return std::make_unique<CommanderModel>(std::move(options));
    }

    void select(Paths tagged, std::optional<fs::path> cursor)
    {
        m_model->left().setSelection({tagged.begin(), tagged.end()});
        m_model->left().setCursor(std::move(cursor));
    }

    QString stateOfLast() const
    {
        return m_model->queue().items().empty() ? QString() : m_model->queue().items().back().state;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_data.isValid());
        qputenv("XDG_DATA_HOME", m_data.path().toUtf8());
    }

    void init()
    {
        m_tree = std::make_unique<test::TestTree>();
        m_home = m_tree->folder("home/Downloads").parent_path();
        m_tree->folder("home/Photos");
        m_tree->folder("empty");
        for (const char *name : {"a", "b", "c"})
            m_tree->file("home/" + std::string(name) + ".txt", name);
        qputenv("HOME", QByteArray::fromStdString(m_home.string()));
        qunsetenv("QUILLORN_RELEASE_PREVIEW_LEFT");
        qunsetenv("QUILLORN_RELEASE_PREVIEW_RIGHT");
        m_preferences =
            std::make_unique<Preferences>(QString::fromStdString((*m_tree / "prefs.ini").string()));
        m_desktop = FakeDesktop();
        m_model = makeModel();
        QVERIFY(listed(*m_model));
    }

    void cleanup()
    {
        m_model.reset();
        m_preferences.reset();
        m_tree.reset();
    }

    void startsOnHomeAndDownloadsUnlessBothPreviewFoldersAreGiven()
    {
        QCOMPARE(m_model->left().directory(), m_home);
        QCOMPARE(m_model->right().directory(), m_home / "Downloads");
        QCOMPARE(m_model->right().persistenceKey(), QString("right"));
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", "no/such/preview"); // relative, and not checked
        m_model = makeModel();
        QVERIFY(listed(*m_model));
        QCOMPARE(m_model->left().directory(), m_home); // one alone is ignored
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((m_home / "Photos").string()));
        m_model = makeModel();
        QVERIFY(listed(*m_model));
        QCOMPARE(m_model->left().directory(), fs::current_path() / "no/such/preview");
        QVERIFY(m_model->left().error());
        QCOMPARE(m_model->right().directory(), m_home / "Photos");
        QCOMPARE(m_model->left().persistenceKey(), QString());
    }

    void renameActsOnTheTaggedItemNotTheCursorAndACancelDoesNothing()
    {
        select({m_home / "b.txt"}, m_home / "a.txt");
        m_desktop.promptAnswers = {std::nullopt, QString("renamed b.txt")};
        m_model->perform(F2Rename);
        QVERIFY(m_model->queue().items().empty());
        m_model->perform(F2Rename);
        QCOMPARE(m_desktop.prompts.at(1), std::pair(QString("Rename"), QString("b.txt")));
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(), QString("Complete"), 5000);
        QCOMPARE(test::TestTree::read(m_home / "renamed b.txt"), std::string("b"));
        QVERIFY(!fs::exists(m_home / "b.txt") && fs::exists(m_home / "a.txt"));
    }

    void renameKeepsTheBytesOfAnUntouchedName()
    {
        const fs::path odd = m_tree->file("home/caf\xe9.txt", "latin-1 name");
        const QString shown = QString::fromUtf8("caf\xef\xbf\xbd.txt");
        QTRY_VERIFY(m_model->left().visibleIndexOf(odd));
        select({}, odd);
        m_desktop.promptAnswers = {shown};
        m_model->perform(F2Rename);
        QCOMPARE(m_desktop.prompts.at(0).second, shown);
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(), "Failed: An item named ‘" + shown + "’ already exists.",
                                  5000);
        QVERIFY(fs::exists(odd) && !fs::exists(m_home / shown.toStdString()));
        QVERIFY(m_desktop.alerts.empty());
    }

    void newFolderTwiceFailsTheSecondTime()
    {
        m_model->setActiveLeft(false); // into the right pane's folder
        m_desktop.promptAnswers = {QString("New Folder"), QString("New Folder")};
        m_model->perform(F7NewFolder);
        QCOMPARE(m_desktop.prompts.at(0), std::pair(QString("New folder"), QString("New Folder")));
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(), QString("Complete"), 5000);
        QVERIFY(fs::is_directory(m_home / "Downloads/New Folder"));
        m_model->perform(F7NewFolder);
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(),
                                  QString("Failed: An item named ‘New Folder’ already exists."), 5000);
        QVERIFY(!fs::exists(m_home / "New Folder"));
    }

    void trashAsksFirstAndStopsAtTheFirstFailure()
    {
        select({m_home / "a.txt", m_home / "b.txt", m_home / "c.txt"}, std::nullopt);
        m_desktop.alertAnswer = 1; // Cancel
        m_model->perform(F8Trash);
        QVERIFY(m_model->queue().items().empty());
        QCOMPARE(m_desktop.alerts.at(0).message, QString("Delete selected items?"));
        QVERIFY(
            m_desktop.alerts[0].informativeText.startsWith("Move 3 selected item(s) to the macOS Trash?"));
        QCOMPARE(m_desktop.alerts[0].buttons, (QStringList{"Continue", "Cancel"}));
        // The second item vanishes after the user confirmed, before the job reaches it.
        m_desktop.alertAnswer = 0;
        m_desktop.duringAlert = [&] { fs::remove(m_home / "b.txt"); };
        m_model->perform(F8Trash);
        QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(),
                                  "Failed: The item no longer exists: " +
                                      QString::fromStdString((m_home / "b.txt").string()),
                                  5000);
        QVERIFY(fs::exists(m_data.path().toStdString() / fs::path("Trash/files/a.txt")));
        QCOMPARE(test::TestTree::read(m_home / "c.txt"), std::string("c"));
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
        QCOMPARE(m_desktop.quitRequests, 0);
        QCOMPARE(m_desktop.alerts.size(), std::size_t(1));
        QCOMPARE(m_desktop.alerts[0].message, QString("Operations in progress"));
        *release = true;
        QTRY_VERIFY_WITH_TIMEOUT(!m_model->queue().hasWork(), 5000);
        m_model->perform(F10Quit);
        QCOMPARE(m_desktop.quitRequests, 1);
        QCOMPARE(m_desktop.alerts.size(), std::size_t(1));
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
        m_desktop.previewFailure = "Permission denied";
        m_model->perform(F3View);
        QCOMPARE(m_desktop.previewed, Paths{m_home / "b.txt"});
        QCOMPARE(m_desktop.alerts.at(0).message, QString("Cannot preview"));
        QCOMPARE(m_desktop.alerts.at(0).informativeText, QString("Permission denied"));
    }

    void commandsWithoutItemsDoNothing()
    {
        m_model->left().navigate(*m_tree / "empty");
        QVERIFY(listed(*m_model));
        for (const int number :
             std::initializer_list<int>{F2Rename, F3View, F4Edit, F5Copy, F6Move, F8Trash, 11, 0, -1})
            m_model->perform(number);
        m_model->clipboardCopy();
        QVERIFY(!m_model->tool());
        QVERIFY(m_desktop.alerts.empty() && m_desktop.prompts.empty() && m_desktop.previewed.empty());
        QVERIFY(m_model->queue().items().empty());
        QCOMPARE(m_model->status(), QString("Ready"));
    }

    void openEntries_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("effect");
        QTest::newRow("a folder") << "Photos"
                                  << "navigate";
        QTest::newRow("Archive.ZIP") << "Archive.ZIP"
                                     << "archive";
        QTest::newRow("photos.zip") << "photos.zip"
                                    << "archive";
        QTest::newRow("notes.zip.txt") << "notes.zip.txt"
                                       << "open";
        QTest::newRow("hidden .zip") << ".zip"
                                     << "open";
    }
    void openEntries()
    {
        QFETCH(QString, name);
        QFETCH(QString, effect);
        const bool folder = effect == "navigate";
        const fs::path item = folder ? m_home / "Photos" : m_tree->file("home/" + name.toStdString(), "PK");
        m_model->setActiveLeft(false); // the active pane navigates, whichever pane listed the entry
        m_model->open(FileEntry{item, folder, 2, {}});
        const auto *sheet = m_model->tool() ? m_model->tool()->as<ToolSheet::Archive>() : nullptr;
        QCOMPARE(sheet ? sheet->archive : fs::path(), effect == "archive" ? item : fs::path());
        QCOMPARE(m_desktop.opened, effect == "open" ? Paths{item} : Paths{});
        QCOMPARE(m_model->right().directory(), folder ? item : m_home / "Downloads");
    }

    void clipboardCopiesVisibleOrderAndPasteOffersACopyIntoTheActiveFolder()
    {
        m_model->clipboardPaste(); // nothing on the clipboard: nothing happens
        QVERIFY(!m_model->tool());
        select({m_home / "c.txt", m_home / "a.txt"}, std::nullopt);
        m_model->clipboardCopy();
        QCOMPARE(m_model->status(), QString("Copied 2 file reference(s)"));
        QCOMPARE(m_desktop.clipboard, (Paths{m_home / "a.txt", m_home / "c.txt"}));
        m_model->setActiveLeft(false);
        m_model->clipboardPaste();
        const auto *paste = m_model->tool().value().as<ToolSheet::Transfer>();
        QVERIFY(paste && !paste->move);
        QCOMPARE(paste->sources, m_desktop.clipboard);
        QCOMPARE(paste->destination, m_home / "Downloads");
    }

    void finishedJobsRefreshBothPanes()
    {
        bool bothListingAtJobEnd = false;
        int checks = 0;
        // Queued: runs right after the job's end was handled, before any listing it
        // started can come back.
        connect(
            &m_model->queue(), &TransferQueue::runningChanged, this,
            [&] {
                if (m_model->queue().running())
                    return;
                ++checks;
                bothListingAtJobEnd = m_model->left().loading() && m_model->right().loading();
            },
            Qt::QueuedConnection);
        m_model->queue().enqueue("Touch", [](OperationControl &) {});
        QTRY_COMPARE_WITH_TIMEOUT(checks, 1, 5000);
        QVERIFY(bothListingAtJobEnd);
        QVERIFY(listed(*m_model));
    }
};

QTEST_GUILESS_MAIN(CommanderModelTest)
#include "tst_commandermodel.moc"
