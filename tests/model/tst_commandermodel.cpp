#include "model/commandermodel.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <deque>
#include <filesystem>
#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

// Stand-ins for the desktop: they record what the model asked and answer as told.
struct FakeDesktop {
    std::vector<AlertRequest> alerts;
    int alertAnswer = 0;
    std::function<void()> duringAlert;
    std::vector<std::pair<QString, QString>> prompts;
    std::deque<std::optional<QString>> promptAnswers;
    std::vector<fs::path> opened;
    std::vector<fs::path> previewed;
    QString previewFailure;
    std::vector<fs::path> clipboard;
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
        desktop.prompt = [this](const QString &title, const QString &value) -> std::optional<QString> {
            prompts.emplace_back(title, value);
            if (promptAnswers.empty())
                return std::nullopt;
            auto answer = promptAnswers.front();
            promptAnswers.pop_front();
            return answer;
        };
        desktop.openFile = [this](const fs::path &file) { opened.push_back(file); };
        desktop.preview = [this](const fs::path &item, std::function<void(const QString &)> failed) {
            previewed.push_back(item);
            if (!previewFailure.isEmpty())
                failed(previewFailure);
        };
        desktop.writeClipboard = [this](const std::vector<fs::path> &items) { clipboard = items; };
        desktop.readClipboard = [this] { return clipboard; };
        desktop.requestQuit = [this] { ++quitRequests; };
        return desktop;
    }
};

QString stateOfLast(CommanderModel &model)
{
    return model.queue().items().empty() ? QString() : model.queue().items().back().state;
}

} // namespace

class CommanderModelTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void startsOnHomeAndDownloadsRememberedUnderLeftAndRight();
    void previewFoldersNeedBothVariables_data();
    void previewFoldersNeedBothVariables();
    void relativePreviewFolderIsTakenFromTheCurrentFolder();
    void toolSheetIdIsTheCaseName();

    void helpShowsTheKeyboardText();
    void renameActsOnTheTaggedItemNotTheCursor();
    void renameWithTwoItemsOrACancelledPromptDoesNothing();
    void renameToTheUnchangedNameFailsInTheQueue();
    void renameKeepsTheBytesOfAnUntouchedName();
    void newFolderTwiceFailsTheSecondTime();
    void newFolderWithAnInvalidNameFailsInTheQueue();
    void trashCancelQueuesNothing();
    void trashStopsAtTheFirstFailure();
    void quitIsRefusedWhileWorkRemains();
    void copyAndMoveOpenTheTransferSheetForTheCursorItem();
    void editAndViewTakeTheFirstItem();
    void commandsWithoutItemsDoNothing();

    void openNavigatesIntoAFolderInTheActivePane();
    void openZipByAnyCaseShowsTheArchiveSheet_data();
    void openZipByAnyCaseShowsTheArchiveSheet();
    void previewFailureShowsCannotPreview();
    void clipboardCopySetsTheStatus();
    void clipboardPasteOffersACopyIntoTheActiveFolder();
    void finishedJobsRefreshBothPanes();

private:
    std::unique_ptr<CommanderModel> makeModel();
    void waitForListings(CommanderModel &model);
    void select(PaneModel &pane, std::vector<fs::path> tagged, std::optional<fs::path> cursor);

    QTemporaryDir m_data;
    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<Preferences> m_preferences;
    FakeDesktop m_desktop;
    fs::path m_home;
};

void CommanderModelTest::initTestCase()
{
    QVERIFY(m_data.isValid());
    // The Trash and the log go below this folder, never the user's own.
    qputenv("XDG_DATA_HOME", m_data.path().toUtf8());
}

void CommanderModelTest::init()
{
    m_tree = std::make_unique<test::TestTree>();
    m_home = m_tree->folder("home");
    m_tree->folder("home/Downloads");
    m_tree->folder("home/Photos");
    m_tree->file("home/a.txt", "a");
    m_tree->file("home/b.txt", "b");
    m_tree->file("home/c.txt", "c");
    qputenv("HOME", QByteArray::fromStdString(m_home.string()));
    qunsetenv("QUILLORN_RELEASE_PREVIEW_LEFT");
    qunsetenv("QUILLORN_RELEASE_PREVIEW_RIGHT");
    m_preferences = std::make_unique<Preferences>(QString::fromStdString((*m_tree / "prefs.ini").string()));
    m_desktop = FakeDesktop();
}

void CommanderModelTest::cleanup()
{
    m_preferences.reset();
    m_tree.reset();
}

std::unique_ptr<CommanderModel> CommanderModelTest::makeModel()
{
    CommanderModelOptions options;
    options.desktop = m_desktop.services();
    options.panes.preferences = m_preferences.get();
    options.panes.metadataIntervalMs = 60'000;
    options.queuePollIntervalMs = 10;
    auto model = std::make_unique<CommanderModel>(std::move(options));
    waitForListings(*model);
    return model;
}

void CommanderModelTest::waitForListings(CommanderModel &model)
{
    QTRY_VERIFY_WITH_TIMEOUT(!model.left().loading() && !model.right().loading(), 5000);
}

void CommanderModelTest::select(PaneModel &pane, std::vector<fs::path> tagged, std::optional<fs::path> cursor)
{
    pane.setSelection({tagged.begin(), tagged.end()});
    pane.setCursor(std::move(cursor));
}

void CommanderModelTest::startsOnHomeAndDownloadsRememberedUnderLeftAndRight()
{
    auto model = makeModel();
    QCOMPARE(model->left().directory(), m_home);
    QCOMPARE(model->right().directory(), m_home / "Downloads");
    QCOMPARE(model->left().persistenceKey(), QStringLiteral("left"));
    QCOMPARE(model->right().persistenceKey(), QStringLiteral("right"));
    QVERIFY(model->activeLeft());
    QCOMPARE(&model->active(), &model->left());
    QCOMPARE(&model->other(), &model->right());
    QCOMPARE(model->status(), QStringLiteral("Ready"));
    QVERIFY(!model->tool());

    QSignalSpy activeSpy(model.get(), &CommanderModel::activeLeftChanged);
    model->setActiveLeft(false);
    model->setActiveLeft(false);
    QCOMPARE(activeSpy.count(), 1);
    QCOMPARE(&model->active(), &model->right());
}

void CommanderModelTest::previewFoldersNeedBothVariables_data()
{
    QTest::addColumn<bool>("setLeft");
    QTest::addColumn<bool>("setRight");
    QTest::newRow("both") << true << true;
    QTest::newRow("left only") << true << false;
    QTest::newRow("right only") << false << true;
}

void CommanderModelTest::previewFoldersNeedBothVariables()
{
    QFETCH(bool, setLeft);
    QFETCH(bool, setRight);
    const fs::path one = m_tree->folder("preview/one");
    const fs::path two = m_tree->folder("preview/two");
    if (setLeft)
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString(one.string()));
    if (setRight)
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString(two.string()));

    auto model = makeModel();
    if (setLeft && setRight) {
        QCOMPARE(model->left().directory(), one);
        QCOMPARE(model->right().directory(), two);
        QCOMPARE(model->left().persistenceKey(), QString());
        QCOMPARE(model->right().persistenceKey(), QString());
        // Preview panes persist nothing, even after navigation.
        model->left().navigate(m_home);
        waitForListings(*model);
        m_preferences->sync();
        QVERIFY(!m_preferences->contains("left.lastDirectory"));
        QVERIFY(!m_preferences->contains(".lastDirectory"));
    } else {
        QCOMPARE(model->left().directory(), m_home);
        QCOMPARE(model->right().directory(), m_home / "Downloads");
        QCOMPARE(model->left().persistenceKey(), QStringLiteral("left"));
    }
}

void CommanderModelTest::relativePreviewFolderIsTakenFromTheCurrentFolder()
{
    // Not checked for existence: a missing folder shows as the pane's listing error.
    qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", "no/such/preview");
    qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString(m_home.string()));
    auto model = makeModel();
    QCOMPARE(model->left().directory(), fs::current_path() / "no/such/preview");
    QVERIFY(model->left().error().has_value());
    QCOMPARE(model->right().directory(), m_home);
}

void CommanderModelTest::toolSheetIdIsTheCaseName()
{
    QCOMPARE(ToolSheet(ToolSheet::Transfer{{"/a"}, "/b", true}).id(), QStringLiteral("transfer"));
    QCOMPARE(ToolSheet(ToolSheet::Search{"/a"}).id(), QStringLiteral("search"));
    QCOMPARE(ToolSheet(ToolSheet::Compare{"/a", "/b"}).id(), QStringLiteral("compare"));
    QCOMPARE(ToolSheet(ToolSheet::Editor{"/a"}).id(), QStringLiteral("editor"));
    QCOMPARE(ToolSheet(ToolSheet::Info{"/a"}).id(), QStringLiteral("info"));
    QCOMPARE(ToolSheet(ToolSheet::Archive{"/a.zip"}).id(), QStringLiteral("archive"));
    QCOMPARE(ToolSheet(ToolSheet::Connect{}).id(), QStringLiteral("connect"));
    // Same case, different payload: same identity, unequal values.
    QCOMPARE(ToolSheet(ToolSheet::Editor{"/a"}).id(), ToolSheet(ToolSheet::Editor{"/b"}).id());
    QVERIFY(!(ToolSheet(ToolSheet::Editor{"/a"}) == ToolSheet(ToolSheet::Editor{"/b"})));
}

void CommanderModelTest::helpShowsTheKeyboardText()
{
    auto model = makeModel();
    model->perform(1);
    QCOMPARE(m_desktop.alerts.size(), std::size_t(1));
    QCOMPARE(m_desktop.alerts[0].message, QStringLiteral("Keyboard help"));
    QVERIFY(m_desktop.alerts[0].buttons.isEmpty());
    const QStringList lines = m_desktop.alerts[0].informativeText.split('\n');
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines[0],
             QStringLiteral("Tab: switch pane • ↑/↓: navigate • Return: open • Space: tag and advance • "
                            "Backspace: parent folder"));
    QCOMPARE(lines[1], QStringLiteral("⌘A: select all • ⌘R: refresh • ⌘⇧.: hidden files"));
    QCOMPARE(lines[2],
             QStringLiteral("F2 Rename • F3 View • F4 Edit • F5 Copy • F6 Move • F7 New folder • F8 Trash"));
    QCOMPARE(lines[3], QStringLiteral("Use Fn with function keys if macOS assigns them to system controls."));
}

void CommanderModelTest::renameActsOnTheTaggedItemNotTheCursor()
{
    auto model = makeModel();
    select(model->left(), {m_home / "b.txt"}, m_home / "a.txt");
    m_desktop.promptAnswers = {QStringLiteral("renamed b.txt")};
    model->perform(2);
    QCOMPARE(m_desktop.prompts.size(), std::size_t(1));
    QCOMPARE(m_desktop.prompts[0], std::make_pair(QStringLiteral("Rename"), QStringLiteral("b.txt")));
    QCOMPARE(model->queue().items().back().title, QStringLiteral("File operation"));
    QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(*model), QStringLiteral("Complete"), 5000);
    QVERIFY(!fs::exists(m_home / "b.txt"));
    QCOMPARE(test::TestTree::read(m_home / "renamed b.txt"), std::string("b"));
    QVERIFY(fs::exists(m_home / "a.txt"));
}

void CommanderModelTest::renameWithTwoItemsOrACancelledPromptDoesNothing()
{
    auto model = makeModel();
    select(model->left(), {m_home / "a.txt", m_home / "b.txt"}, std::nullopt);
    m_desktop.promptAnswers = {QStringLiteral("x")};
    model->perform(2);
    QVERIFY(m_desktop.prompts.empty());

    select(model->left(), {}, m_home / "a.txt");
    m_desktop.promptAnswers = {std::nullopt};
    model->perform(2);
    QCOMPARE(m_desktop.prompts.size(), std::size_t(1));
    QVERIFY(model->queue().items().empty());
}

void CommanderModelTest::renameToTheUnchangedNameFailsInTheQueue()
{
    auto model = makeModel();
    select(model->left(), {}, m_home / "a.txt");
    m_desktop.promptAnswers = {QStringLiteral("a.txt")};
    model->perform(2);
    QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(*model),
                              QStringLiteral("Failed: An item named ‘a.txt’ already exists."), 5000);
    QVERIFY(m_desktop.alerts.empty());
    QCOMPARE(test::TestTree::read(m_home / "a.txt"), std::string("a"));
}

void CommanderModelTest::renameKeepsTheBytesOfAnUntouchedName()
{
    const fs::path odd = m_tree->file("home/caf\xe9.txt", "latin-1 name");
    auto model = makeModel();
    select(model->left(), {}, odd);
    m_desktop.promptAnswers = {QString::fromUtf8("caf\xef\xbf\xbd.txt")};
    model->perform(2);
    QCOMPARE(m_desktop.prompts.at(0).second, QString::fromUtf8("caf\xef\xbf\xbd.txt"));
    QTRY_COMPARE_WITH_TIMEOUT(
        stateOfLast(*model), QString::fromUtf8("Failed: An item named ‘caf\xef\xbf\xbd.txt’ already exists."),
        5000);
    QVERIFY(fs::exists(odd));
    QVERIFY(!fs::exists(m_home / "caf\xef\xbf\xbd.txt"));
}

void CommanderModelTest::newFolderTwiceFailsTheSecondTime()
{
    auto model = makeModel();
    model->setActiveLeft(false); // into the right pane's folder
    m_desktop.promptAnswers = {QStringLiteral("New Folder"), QStringLiteral("New Folder")};
    model->perform(7);
    QCOMPARE(m_desktop.prompts[0],
             std::make_pair(QStringLiteral("New folder"), QStringLiteral("New Folder")));
    QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(*model), QStringLiteral("Complete"), 5000);
    QVERIFY(fs::is_directory(m_home / "Downloads/New Folder"));
    QVERIFY(fs::is_empty(m_home / "Downloads/New Folder"));

    model->perform(7);
    QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(*model),
                              QStringLiteral("Failed: An item named ‘New Folder’ already exists."), 5000);
    QVERIFY(!fs::exists(m_home / "New Folder"));
    QVERIFY(m_desktop.alerts.empty());
}

void CommanderModelTest::newFolderWithAnInvalidNameFailsInTheQueue()
{
    auto model = makeModel();
    m_desktop.promptAnswers = {QStringLiteral("a/b")};
    model->perform(7);
    QTRY_COMPARE_WITH_TIMEOUT(stateOfLast(*model),
                              QStringLiteral("Failed: Enter a single valid file or folder name."), 5000);
    QVERIFY(!fs::exists(m_home / "a"));
}

void CommanderModelTest::trashCancelQueuesNothing()
{
    auto model = makeModel();
    select(model->left(), {m_home / "a.txt", m_home / "b.txt"}, std::nullopt);
    m_desktop.alertAnswer = 1;
    model->perform(8);
    QCOMPARE(m_desktop.alerts.size(), std::size_t(1));
    const AlertRequest &alert = m_desktop.alerts[0];
    QCOMPARE(alert.message, QStringLiteral("Delete selected items?"));
    QCOMPARE(
        alert.informativeText,
        QStringLiteral("Move 2 selected item(s) to the macOS Trash? If Trash is unavailable on a network "
                       "share, those items will be permanently deleted."));
    QCOMPARE(alert.buttons, (QStringList{"Continue", "Cancel"}));
    QVERIFY(model->queue().items().empty());
    QVERIFY(fs::exists(m_home / "a.txt"));
}

void CommanderModelTest::trashStopsAtTheFirstFailure()
{
    auto model = makeModel();
    select(model->left(), {m_home / "a.txt", m_home / "b.txt", m_home / "c.txt"}, std::nullopt);
    // The second item vanishes after the user confirmed, before the job reaches it.
    m_desktop.duringAlert = [&] { fs::remove(m_home / "b.txt"); };
    m_desktop.alertAnswer = 0;
    model->perform(8);
    QTRY_COMPARE_WITH_TIMEOUT(
        stateOfLast(*model),
        "Failed: The item no longer exists: " + QString::fromStdString((m_home / "b.txt").string()), 5000);
    QVERIFY(!fs::exists(m_home / "a.txt"));
    QVERIFY(fs::exists(m_data.path().toStdString() / fs::path("Trash/files/a.txt")));
    QCOMPARE(test::TestTree::read(m_home / "c.txt"), std::string("c"));
}

void CommanderModelTest::quitIsRefusedWhileWorkRemains()
{
    auto model = makeModel();
    auto release = std::make_shared<std::atomic<bool>>(false);
    model->queue().enqueue("Long", [release](OperationControl &control) {
        while (!*release) {
            control.check();
            QThread::msleep(2);
        }
    });
    model->perform(10);
    QCOMPARE(m_desktop.quitRequests, 0);
    QCOMPARE(m_desktop.alerts.size(), std::size_t(1));
    QCOMPARE(m_desktop.alerts[0].message, QStringLiteral("Operations in progress"));
    QCOMPARE(m_desktop.alerts[0].informativeText,
             QStringLiteral("Cancel or finish queued operations before quitting."));

    *release = true;
    QTRY_VERIFY_WITH_TIMEOUT(!model->queue().hasWork(), 5000);
    model->perform(10);
    QCOMPARE(m_desktop.quitRequests, 1);
    QCOMPARE(m_desktop.alerts.size(), std::size_t(1));
}

void CommanderModelTest::copyAndMoveOpenTheTransferSheetForTheCursorItem()
{
    auto model = makeModel();
    select(model->left(), {}, m_home / "b.txt");
    QSignalSpy toolSpy(model.get(), &CommanderModel::toolChanged);
    model->perform(5);
    QVERIFY(model->tool());
    const auto *copy = model->tool()->as<ToolSheet::Transfer>();
    QVERIFY(copy);
    QCOMPARE(copy->sources, std::vector<fs::path>{m_home / "b.txt"});
    QCOMPARE(copy->destination, m_home / "Downloads");
    QVERIFY(!copy->move);

    model->setTool(std::nullopt);
    model->perform(6);
    QVERIFY(model->tool()->as<ToolSheet::Transfer>()->move);
    QCOMPARE(toolSpy.count(), 3);
}

void CommanderModelTest::editAndViewTakeTheFirstItem()
{
    auto model = makeModel();
    select(model->left(), {m_home / "c.txt", m_home / "b.txt"}, std::nullopt);
    model->perform(4);
    QCOMPARE(model->tool()->id(), QStringLiteral("editor"));
    // Visible order, not the order of tagging.
    QCOMPARE(model->tool()->as<ToolSheet::Editor>()->file, m_home / "b.txt");
    model->perform(3);
    QCOMPARE(m_desktop.previewed, std::vector<fs::path>{m_home / "b.txt"});
}

void CommanderModelTest::commandsWithoutItemsDoNothing()
{
    m_tree->folder("empty");
    auto model = makeModel();
    model->left().navigate(*m_tree / "empty");
    waitForListings(*model);
    QVERIFY(model->left().selected().empty());
    for (int number : {2, 3, 4, 5, 6, 8, 11, 0, -1})
        model->perform(number);
    model->clipboardCopy();
    QVERIFY(!model->tool());
    QVERIFY(m_desktop.alerts.empty());
    QVERIFY(m_desktop.prompts.empty());
    QVERIFY(m_desktop.previewed.empty());
    QVERIFY(model->queue().items().empty());
    QCOMPARE(model->status(), QStringLiteral("Ready"));
}

void CommanderModelTest::openNavigatesIntoAFolderInTheActivePane()
{
    auto model = makeModel();
    model->setActiveLeft(false);
    // An entry of the left pane, opened while the right one is active: the active pane navigates.
    model->open(FileEntry{m_home / "Photos", true, 0, {}});
    QCOMPARE(model->right().directory(), m_home / "Photos");
    QCOMPARE(model->left().directory(), m_home);
    QVERIFY(m_desktop.opened.empty());
}

void CommanderModelTest::openZipByAnyCaseShowsTheArchiveSheet_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("archive");
    QTest::newRow("Archive.ZIP") << "Archive.ZIP" << true;
    QTest::newRow("photos.zip") << "photos.zip" << true;
    QTest::newRow("mixed.Zip") << "mixed.Zip" << true;
    QTest::newRow("notes.zip.txt") << "notes.zip.txt" << false;
    QTest::newRow("zip without dot") << "zip" << false;
    QTest::newRow("hidden .zip") << ".zip" << false;
    QTest::newRow("report.pdf") << "report.pdf" << false;
}

void CommanderModelTest::openZipByAnyCaseShowsTheArchiveSheet()
{
    QFETCH(QString, name);
    QFETCH(bool, archive);
    auto model = makeModel();
    const fs::path file = m_tree->file("home/" + name.toStdString(), "PK");
    model->open(FileEntry{file, false, 2, {}});
    if (archive) {
        QVERIFY(model->tool());
        QCOMPARE(model->tool()->as<ToolSheet::Archive>()->archive, file);
        QVERIFY(m_desktop.opened.empty());
    } else {
        QVERIFY(!model->tool());
        QCOMPARE(m_desktop.opened, std::vector<fs::path>{file});
    }
}

void CommanderModelTest::previewFailureShowsCannotPreview()
{
    auto model = makeModel();
    select(model->left(), {}, m_home / "a.txt");
    m_desktop.previewFailure = QStringLiteral("Permission denied");
    model->perform(3);
    QCOMPARE(m_desktop.alerts.size(), std::size_t(1));
    QCOMPARE(m_desktop.alerts[0].message, QStringLiteral("Cannot preview"));
    QCOMPARE(m_desktop.alerts[0].informativeText, QStringLiteral("Permission denied"));
}

void CommanderModelTest::clipboardCopySetsTheStatus()
{
    auto model = makeModel();
    select(model->left(), {m_home / "c.txt", m_home / "a.txt"}, std::nullopt);
    QSignalSpy statusSpy(model.get(), &CommanderModel::statusChanged);
    model->clipboardCopy();
    QCOMPARE(model->status(), QStringLiteral("Copied 2 file reference(s)"));
    QCOMPARE(m_desktop.clipboard, (std::vector<fs::path>{m_home / "a.txt", m_home / "c.txt"}));
    QCOMPARE(statusSpy.count(), 1);
}

void CommanderModelTest::clipboardPasteOffersACopyIntoTheActiveFolder()
{
    auto model = makeModel();
    model->clipboardPaste(); // nothing on the clipboard: nothing happens
    QVERIFY(!model->tool());

    m_desktop.clipboard = {m_home / "a.txt", m_home / "Photos"};
    model->setActiveLeft(false);
    model->clipboardPaste();
    QVERIFY(model->tool());
    const auto *paste = model->tool()->as<ToolSheet::Transfer>();
    QCOMPARE(paste->sources, m_desktop.clipboard);
    QCOMPARE(paste->destination, m_home / "Downloads");
    QVERIFY(!paste->move);
    QCOMPARE(model->status(), QStringLiteral("Ready"));
}

void CommanderModelTest::finishedJobsRefreshBothPanes()
{
    auto model = makeModel();
    bool bothListingAtJobEnd = false;
    int checks = 0;
    // Queued: runs right after the job's end was handled, before any listing it
    // started can come back.
    connect(
        &model->queue(), &TransferQueue::runningChanged, this,
        [&] {
            if (model->queue().running())
                return;
            ++checks;
            bothListingAtJobEnd = model->left().loading() && model->right().loading();
        },
        Qt::QueuedConnection);
    model->queue().enqueue("Touch", [](OperationControl &) {});
    QTRY_COMPARE_WITH_TIMEOUT(checks, 1, 5000);
    QVERIFY(bothListingAtJobEnd);
    waitForListings(*model);
}

QTEST_GUILESS_MAIN(CommanderModelTest)
#include "tst_commandermodel.moc"
