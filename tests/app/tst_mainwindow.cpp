#include "windowfixture.h"

#include "app/detail/paneheaderbar.h"
#include "app/functionkeybar.h"
#include "app/keyhandler.h"
#include "app/statusline.h"
#include "app/windowcommands.h"
#include "model/commanderthemecolours.h"
#include "operations/commandererror.h"
#include "tools/queueview.h"

#include <QDir>
#include <QMenu>
#include <QRegularExpression>
#include <QScreen>
#include <QSet>

using namespace quillorn;
using namespace quillorn::test;

namespace {

bool drawsIn(const QImage &image, const QColor &colour)
{
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixelColor(x, y) == colour)
                return true;
    return false;
}

struct KeyRow {
    const char *name;
    int key;
    int modifiers;
    int cursorBefore;                                          // row of the left listing, -1: none
    const char *tagsBefore, *cursorAfter, *tagsAfter, *effect; // "goes on": the focused widget got it
};

constexpr int none = Qt::NoModifier, ctrl = Qt::ControlModifier, shift = Qt::ShiftModifier,
              alt = Qt::AltModifier;
// Left rows: alpha, b.txt, c.txt, d.txt (folders first, hidden items hidden).
// After a "dir:" effect the cursor and tags are not checked.
const KeyRow keyRows[] = {
    {"F1 help", Qt::Key_F1, none, 1, "", "b.txt", "", "alert:Keyboard help"},
    {"F2 rename", Qt::Key_F2, none, 1, "", "b.txt", "", "prompt:Rename"},
    {"F2 with two tagged does nothing", Qt::Key_F2, none, 1, "b.txt,c.txt", "b.txt", "b.txt,c.txt", ""},
    {"F3 view", Qt::Key_F3, none, 2, "", "c.txt", "", "preview:c.txt"},
    {"F4 edit", Qt::Key_F4, none, 3, "", "d.txt", "", "tool:editor"},
    {"F5 copy", Qt::Key_F5, none, 1, "", "b.txt", "", "tool:transfer:copy"},
    {"F5 with nothing to copy", Qt::Key_F5, none, -1, "", "", "", ""},
    {"F6 move", Qt::Key_F6, none, 1, "", "b.txt", "", "tool:transfer:move"},
    {"F7 new folder", Qt::Key_F7, none, -1, "", "", "", "prompt:New folder"},
    {"F8 trash", Qt::Key_F8, none, 2, "", "c.txt", "", "alert:Delete selected items?"},
    {"F9 refresh", Qt::Key_F9, none, 1, "", "b.txt", "", "refresh"},
    {"F10 quit", Qt::Key_F10, ctrl, 1, "", "b.txt", "", "quit"},
    {"Ctrl+C copies references", Qt::Key_C, ctrl, 1, "c.txt,d.txt", "b.txt", "c.txt,d.txt", "clipboard:2"},
    {"Ctrl+V offers a paste", Qt::Key_V, ctrl, 1, "", "b.txt", "", "tool:transfer:copy"},
    {"Ctrl+X cuts references", Qt::Key_X, ctrl, 1, "c.txt", "b.txt", "c.txt", "cut:1"},
    {"Ctrl+T new tab", Qt::Key_T, ctrl, 1, "", "b.txt", "", "tabs:2"},
    {"Ctrl+W with one tab goes on", Qt::Key_W, ctrl, 1, "", "b.txt", "", "goes on"},
    {"Ctrl+F search", Qt::Key_F, ctrl, 1, "", "b.txt", "", "tool:search:Left"},
    {"Ctrl+I info", Qt::Key_I, ctrl, 2, "", "c.txt", "", "tool:info:c.txt"},
    {"Ctrl+R refresh", Qt::Key_R, ctrl, 1, "", "b.txt", "", "refresh"},
    {"Ctrl+Shift+C copies paths as text, not references", Qt::Key_C, ctrl | shift, 2, "", "c.txt", "",
     "clipboard:0"},
    {"Ctrl+A select all", Qt::Key_A, ctrl, 3, "", "alpha", "alpha,b.txt,c.txt,d.txt", ""},
    {"Ctrl+Shift+. shows hidden", Qt::Key_Period, ctrl | shift, 1, "", "b.txt", "", "hidden"},
    {"Ctrl+Shift+. as > on a US layout", Qt::Key_Greater, ctrl | shift, 1, "", "b.txt", "", "hidden"},
    {"Ctrl+. without Shift goes on", Qt::Key_Period, ctrl, 1, "", "b.txt", "", "goes on"},
    {"Ctrl+Down is not a cursor key", Qt::Key_Down, ctrl, 1, "", "b.txt", "", "goes on"},
    {"Return opens the cursor folder, not the tags", Qt::Key_Return, none, 0, "c.txt", "", "", "dir:alpha"},
    {"Return without cursor opens the first tagged", Qt::Key_Return, none, -1, "d.txt,alpha", "", "",
     "dir:alpha"},
    {"Return with nothing to open", Qt::Key_Return, none, -1, "", "", "", ""},
    {"Alt+Shift+Return counts folder sizes, it does not open", Qt::Key_Return, alt | shift, 0, "", "alpha",
     "", ""},
    {"Tab switches pane", Qt::Key_Tab, none, 1, "", "b.txt", "", "pane:right"},
    {"Shift+Tab switches pane", Qt::Key_Backtab, shift, 1, "", "b.txt", "", "pane:right"},
    {"Space tags and advances", Qt::Key_Space, none, 1, "", "c.txt", "b.txt", ""},
    {"Backspace goes to the parent", Qt::Key_Backspace, none, 1, "", "", "", "dir:parent"},
    {"Down from no cursor lands on the first", Qt::Key_Down, none, -1, "", "alpha", "", ""},
    {"Shift+Down extends the tags", Qt::Key_Down, shift, 1, "", "c.txt", "c.txt", ""},
    {"Shift+Up extends the tags", Qt::Key_Up, shift, 2, "d.txt", "b.txt", "b.txt,d.txt", ""},
    {"Alt+Up still moves", Qt::Key_Up, alt, 2, "", "b.txt", "", ""},
    // The window's own command rows, after the fixed ones.
    {"a letter jumps to the first name it starts", Qt::Key_D, none, 0, "", "d.txt", "", ""},
    {"a letter nothing starts with stays put", Qt::Key_X, none, 1, "", "b.txt", "", ""},
    {"Ctrl with a letter of no command goes on", Qt::Key_B, ctrl, 1, "", "b.txt", "", "goes on"},
    {"PgDn stops at the last row", Qt::Key_PageDown, none, 0, "", "d.txt", "", ""},
    {"Shift+PgDn tags every row it passes", Qt::Key_PageDown, shift, 1, "", "d.txt", "c.txt,d.txt", ""},
    {"Home goes to the first row", Qt::Key_Home, none, 3, "", "alpha", "", ""},
    {"Shift+Home tags on the way up", Qt::Key_Home, shift, 2, "d.txt", "alpha", "alpha,b.txt,d.txt", ""},
    {"End goes to the last row", Qt::Key_End, none, 0, "", "d.txt", "", ""},
    {"minus untags all", Qt::Key_Minus, none, 1, "b.txt,c.txt", "b.txt", "", ""},
    {"asterisk inverts the tags", Qt::Key_Asterisk, shift, 1, "b.txt", "b.txt", "alpha,c.txt,d.txt", ""},
    {"plus asks for a pattern", Qt::Key_Plus, shift, 1, "", "b.txt", "", "prompt:Tag by pattern"},
    {"Ctrl+= compares the panes", Qt::Key_Equal, ctrl, 1, "", "b.txt", "", "tool:compare"},
    {"Ctrl++ compares where = needs Shift", Qt::Key_Plus, ctrl | shift, 1, "", "b.txt", "", "tool:compare"},
    {"Ctrl+M multi-renames the tagged", Qt::Key_M, ctrl, 1, "c.txt,d.txt", "b.txt", "c.txt,d.txt",
     "tool:multiRename:2"},
    {"Ctrl+M with nothing to rename goes on", Qt::Key_M, ctrl, -1, "", "", "", "goes on"},
    {"Ctrl+N connects to a server", Qt::Key_N, ctrl, 1, "", "b.txt", "", "tool:connect"},
    {"Ctrl+Tab with one tab stays", Qt::Key_Tab, ctrl, 1, "", "b.txt", "", ""},
    {"Ctrl+J without a queue on screen goes on", Qt::Key_J, ctrl, 1, "", "b.txt", "", "goes on"},
};

} // namespace

// With QUILLORN_SCREENSHOT_DIR set, the theme test saves a picture of the window in each theme there.
class MainWindowTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_f.setUp(); }
    void cleanup() { m_f.tearDown(); }

    void keyTable_data()
    {
        QTest::addColumn<int>("index");
        for (int i = 0; i < int(std::size(keyRows)); ++i)
            QTest::newRow(keyRows[i].name) << i;
    }

    void keyTable()
    {
        QFETCH(int, index);
        const KeyRow &row = keyRows[index];
        PaneModel &left = m_f.left();
        left.setCursor(row.cursorBefore < 0
                           ? std::nullopt
                           : std::optional(left.visible()[std::size_t(row.cursorBefore)].url()));
        left.setSelection(leftItems(row.tagsBefore));
        const fs::path before = left.directory();
        const QString effect = row.effect;
        QSignalSpy rightListed(&m_f.view->model().right(), &PaneModel::listingApplied);

        QTest::keyClick(m_f.view->centralWidget(), Qt::Key(row.key), Qt::KeyboardModifiers(row.modifiers));

        QStringList effects = m_f.calls;
        if (m_f.recorder.keys.contains(row.key))
            effects << "goes on";
        if (rightListed.count() > 0 || (effect == "refresh" && rightListed.wait())) // the inactive pane too
            effects << "refresh";
        if (const auto copied = FileClipboard::read();
            copied != std::vector<fs::path>{*m_f.tree / "Right/r.txt"})
            effects << (FileClipboard::readIsCut() ? "cut:" : "clipboard:") + QString::number(copied.size());
        if (const auto &tool = m_f.view->model().tool()) {
            QString text = "tool:" + tool->id();
            if (const auto *transfer = tool->as<ToolSheet::Transfer>())
                text += transfer->move ? ":move" : ":copy";
            if (const auto *search = tool->as<ToolSheet::Search>())
                text += ":" + name(search->root);
            if (const auto *info = tool->as<ToolSheet::Info>())
                text += ":" + name(info->item);
            if (const auto *rename = tool->as<ToolSheet::MultiRename>())
                text += ":" + QString::number(rename->items.size());
            effects << text;
        }
        if (!m_f.view->model().activeLeft())
            effects << "pane:right";
        if (left.showHidden())
            effects << "hidden";
        if (left.tabs().size() != 1)
            effects << "tabs:" + QString::number(left.tabs().size());
        if (left.directory() != before)
            effects << (left.directory() == before.parent_path() ? "dir:parent"
                                                                 : "dir:" + name(left.directory()));
        QCOMPARE(effects.join(' '), effect);
        if (!effect.startsWith("dir:")) {
            QCOMPARE(left.cursor() ? name(*left.cursor()) : QString(), QString(row.cursorAfter));
            QCOMPARE(left.selection(), leftItems(row.tagsAfter));
        }
    }

    void ctrlAOnAnEmptyFolderEmptiesSelectionAndCursor()
    {
        PaneModel &left = m_f.left();
        left.navigate(m_f.tree->folder("Empty"));
        WindowFixture::waitListed(left);
        left.setSelection({*m_f.tree / "Left/b.txt"});
        QTest::keyClick(m_f.view->centralWidget(), Qt::Key_A, Qt::ControlModifier);
        QVERIFY(left.selection().empty());
        QVERIFY(!left.cursor());
    }

    // A Russian layout: the keys at the places of A and C give Cyrillic letters.
    void ctrlWithALetterOfANonLatinLayoutActsAsTheLatinKeyAtItsPlace()
    {
        PaneModel &left = m_f.left();
        WindowFixture::waitListed(left);
        const auto press = [&](int key, Qt::KeyboardModifiers modifiers, quint32 scanCode,
                               const QString &text) {
            QKeyEvent event(QEvent::KeyPress, key, modifiers, scanCode, 0, 0, text);
            QApplication::sendEvent(QApplication::focusWidget(), &event);
        };
        left.setSelection({});
        press(0x424, Qt::ControlModifier, 38, QStringLiteral("\x01")); // Ctrl+Ф: select all
        QCOMPARE(left.selection().size(), std::size_t(left.visibleCount()));
        press(0x424, Qt::NoModifier, 38, QStringLiteral("ф")); // alone it types a name, not a command
        QCOMPARE(left.selection().size(), std::size_t(left.visibleCount()));
        press(0x421, Qt::ControlModifier, 54, QStringLiteral("\x03")); // Ctrl+С: copy the items' references
        QCOMPARE(QApplication::clipboard()->mimeData()->hasUrls(), true);
    }

    void cutItemsAreDimmedAndPasteAsAMoveWhereverTheyWereCut()
    {
        PaneModel &left = m_f.left();
        WindowFixture::waitListed(left);
        left.setCursor(*m_f.tree / "Left/c.txt");
        QTest::keyClick(m_f.view->centralWidget(), Qt::Key_X, Qt::ControlModifier);
        QCOMPARE(left.cut(), std::set<fs::path>{*m_f.tree / "Left/c.txt"});
        const QAbstractItemModel *rows = m_f.view->leftPane()->listView()->model();
        const auto dimmed = [&](const char *item) {
            const auto row = left.visibleIndexOf(*m_f.tree / "Left" / item);
            return rows->index(*row, 0).data(detail::PaneTableModel::cutRole).toBool();
        };
        QVERIFY(dimmed("c.txt") && !dimmed("b.txt"));
        QTest::keyClick(m_f.view->centralWidget(), Qt::Key_Tab);
        QTest::keyClick(m_f.view->centralWidget(), Qt::Key_V, Qt::ControlModifier);
        QVERIFY(m_f.view->model().tool());
        const auto *transfer = m_f.view->model().tool()->as<ToolSheet::Transfer>();
        QVERIFY(transfer && transfer->move && transfer->sources == std::vector{*m_f.tree / "Left/c.txt"});
        m_f.view->model().setTool(std::nullopt);

        // Copying anything else, here or elsewhere, ends the cut's look.
        QApplication::clipboard()->setMimeData(
            FileClipboard::mimeData({*m_f.tree / "Right/r.txt"}).release());
        QTRY_VERIFY(left.cut().empty());
        QVERIFY(!dimmed("c.txt"));
        // A cut in KDE's form, as Dolphin writes it, pastes as a move too.
        auto *kde = new QMimeData;
        kde->setData("text/uri-list",
                     "file://" + QByteArray::fromStdString((*m_f.tree / "Right/r.txt").string()));
        kde->setData("application/x-kde-cutselection", "1");
        QApplication::clipboard()->setMimeData(kde);
        QTest::keyClick(m_f.view->centralWidget(), Qt::Key_Tab);
        QTest::keyClick(m_f.view->centralWidget(), Qt::Key_V, Qt::ControlModifier);
        QVERIFY(m_f.view->model().tool() && m_f.view->model().tool()->as<ToolSheet::Transfer>()->move);
    }

    void keysActOnTheActivePaneOfTheActiveWindowOnly()
    {
        m_f.view->model().right().setCursor(std::nullopt);
        m_f.view->model().setActiveLeft(false);
        QTest::keyClick(m_f.view->centralWidget(), Qt::Key_Down);
        QCOMPARE(m_f.view->model().right().cursor(), std::optional(*m_f.tree / "Right/Archive"));
        QWidget other;
        KeyRecorder recorder;
        other.setFocusPolicy(Qt::StrongFocus);
        other.installEventFilter(&recorder);
        other.show();
        QApplication::setActiveWindow(&other);
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QTest::keyClick(&other, Qt::Key_Tab);
        QCOMPARE(recorder.keys, QList<int>{Qt::Key_Tab});
        QVERIFY(!m_f.view->model().activeLeft());
    }

    void keysDriveTheWindowUntilASheetTakesThem()
    {
        QCOMPARE(CommanderAppDelegate::queue.data(), &m_f.view->model().queue());
        m_f.view->hide(); // showing again must not install a second key monitor
        m_f.showActive();
        m_f.left().setCursor(std::nullopt);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down);
        QCOMPARE(m_f.left().cursor(), std::optional(*m_f.tree / "Left/alpha"));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_F5);
        QDialog *sheet = m_f.view->toolHost()->sheet();
        QVERIFY(sheet);
        QTRY_VERIFY(QApplication::activeModalWidget() == sheet);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY(m_f.view->model().activeLeft());
        QTest::keyClick(sheet, Qt::Key_Escape);
        QTRY_VERIFY(QApplication::activeModalWidget() == nullptr);
        QTest::keyClick(m_f.view.get(), Qt::Key_Tab);
        QVERIFY(!m_f.view->model().activeLeft());
    }

    void barsFollowTheActivePaneAndRunCommands()
    {
        CommanderToolBar *bar = m_f.view->toolBar();
        const std::vector<fs::path> items{*m_f.tree / "Left/b.txt", *m_f.tree / "Left/c.txt"};
        m_f.left().setSelection({items.begin(), items.end()});
        bar->button("Open")->click();
        QCOMPARE(m_f.calls, (QStringList{"open:b.txt", "open:c.txt"}));
        bar->button("Copy refs")->click();
        QCOMPARE(m_f.view->statusLine()->statusText(), QStringLiteral("Copied 2 file reference(s)"));
        m_f.view->model().setActiveLeft(false);
        bar->button("Paste")->click();
        const auto *paste = m_f.view->model().tool()->as<ToolSheet::Transfer>();
        QVERIFY(paste && !paste->move);
        QCOMPARE(paste->sources, items);
        QCOMPARE(paste->destination, *m_f.tree / "Right");
        m_f.view->toolHost()->sheet()->reject();
        m_f.view->model().setActiveLeft(true);
        m_f.view->functionKeyBar()->button(6)->click();
        const auto *move = m_f.view->model().tool()->as<ToolSheet::Transfer>();
        QVERIFY(move && move->move);
    }

    void comingBackToTheApplicationRefreshesBothPanes()
    {
        QSignalSpy left(&m_f.left(), &PaneModel::listingApplied);
        QSignalSpy right(&m_f.view->model().right(), &PaneModel::listingApplied);
        Q_EMIT qApp->applicationStateChanged(Qt::ApplicationInactive);
        QTest::qWait(50);
        QCOMPARE(left.count() + right.count(), 0);
        Q_EMIT qApp->applicationStateChanged(Qt::ApplicationActive);
        QVERIFY(left.count() > 0 || left.wait());
        QVERIFY(right.count() > 0 || right.wait());
    }

    void everySurfaceTakesTheTheme()
    {
        m_f.left().setSelection({*m_f.tree / "Left/c.txt"});
        QVERIFY(!m_f.view->queueView()->isVisible()); // nothing queued
        m_f.view->model().queue().enqueue("Copy 2 → Archive", [](OperationControl &) {
            throw CommanderError("An item named ‘r.txt’ already exists.");
        });
        QVERIFY(m_f.view->queueView()->isVisible());
        QTRY_VERIFY(!m_f.view->model().queue().running());
        const QString folder = qEnvironmentVariable("QUILLORN_SCREENSHOT_DIR");
        for (CommanderTheme theme : allCommanderThemes) {
            m_f.view->applyTheme(theme);
            QTest::qWait(20); // the restyled layout settles, as on screen
            const QImage image = m_f.view->grab().toImage();
            const auto colourAt = [&](QWidget *widget) {
                return image.pixelColor(widget->mapTo(m_f.view.get(), QPoint(4, 2)));
            };
            QCOMPARE(colourAt(m_f.view->centralWidget()), colours(theme).window);
            QCOMPARE(colourAt(m_f.view->queueView()), colours(theme).bar);
            QCOMPARE(colourAt(m_f.view->toolBar()->button("Search")), colours(theme).button);
            // The failed job's state is drawn in orange; a key's number in the accent, its label not.
            QVERIFY(drawsIn(m_f.view->queueView()->grab().toImage(), QueueView::failureColour));
            const QList<QLabel *> f5 = m_f.view->functionKeyBar()->button(5)->findChildren<QLabel *>();
            QVERIFY(drawsIn(f5[0]->grab().toImage(), colours(theme).accent));
            QVERIFY(!drawsIn(f5[1]->grab().toImage(), colours(theme).accent));
            if (!folder.isEmpty()) {
                QString name = rawValue(theme).toLower().replace(QRegularExpression("[^a-z]+"), "-");
                QVERIFY(image.save(QDir(folder).filePath(name + ".png")));
            }
        }
    }

    void commandKeysOnlyAddToTheFixedKeys()
    {
        const CommandTable &table = m_f.view->commands();
        QSet<QKeyCombination> seen;
        const QString help = [&] {
            m_f.view->model().perform(1);
            return m_f.helpDetails;
        }();
        for (const Command &command : table.commands()) {
            for (const QKeyCombination key : command.keys) {
                QVERIFY2(!KeyHandler::binding(key.key(), key.keyboardModifiers()) || command.menuShortcut,
                         qPrintable(command.id + " takes a key of the fixed table"));
                QVERIFY2(!seen.contains(key), qPrintable(command.id + " shares its key"));
                seen.insert(key);
            }
            const QString line =
                command.functionKey > 0 ? command.shownKey() + " " + command.text : command.shownKey() + ": ";
            if (!command.shownKey().isEmpty())
                QVERIFY2(help.contains(line), qPrintable(command.id + " is missing in the help"));
        }
        QVERIFY(help.contains("Ctrl+,: Settings…"));
    }

    void ctrlZTakesTheNewFolderOfF7AwayAgainWithTheKeyboardLeftInThePane()
    {
        m_f.prompt = [](const QString &, const QString &) { return std::optional<QString>("Made"); };
        QWidget *list = m_f.view->leftPane()->listView();
        list->setFocus(Qt::MouseFocusReason);
        const fs::path made = *m_f.tree / "Left/Made";
        QTest::keyClick(list, Qt::Key_F7);
        QTRY_VERIFY(fs::is_directory(made));
        const StatusLine *status = m_f.view->statusLine();
        QTRY_COMPARE(status->statusText(), "Ctrl+Z: undo new folder ‘Made’");
        m_f.view->model().perform(1);
        QVERIFY2(m_f.helpDetails.contains("\nCtrl+Z: Undo new folder ‘Made’\n"), qPrintable(m_f.helpDetails));

        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Z, Qt::ControlModifier);
        QTRY_VERIFY(!fs::exists(made));
        QTRY_COMPARE(status->statusText(), "Undone: new folder ‘Made’");
        QTRY_VERIFY(!m_f.left().visibleIndexOf(made));
        QCOMPARE(QApplication::focusWidget(), list);
        QTest::keyClick(list, Qt::Key_Z, Qt::ControlModifier); // nothing left: the key goes on
        QCOMPARE(m_f.view->model().queue().items().size(), std::size_t(2));
        m_f.left().setCursor(*m_f.tree / "Left/alpha");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Down);
        QCOMPARE(m_f.left().cursor(), std::optional(*m_f.tree / "Left/b.txt"));
    }

    void barsAreMadeFromTheCommandTable()
    {
        QStringList toolBar, functionKeys;
        for (const Command &command : m_f.view->commands().commands()) {
            if (command.toolBarSymbol >= 0)
                toolBar << command.text;
            if (command.functionKey > 0)
                functionKeys << command.text;
        }
        QCOMPARE(toolBar, (QStringList{"Search", "Compare", "Info", "Open", "Connect", "Copy refs", "Paste",
                                       "New tab", "Close"}));
        QCOMPARE(functionKeys, FunctionKeyBar::actions);
        for (const QString &text : toolBar)
            QVERIFY(m_f.view->toolBar()->button(text));
        m_f.left().setSelection({});
        m_f.left().setCursor(std::nullopt);
        QVERIFY(!m_f.view->toolBar()->button("Info")->isEnabled());
        m_f.left().setCursor(*m_f.tree / "Left/c.txt");
        QVERIFY(m_f.view->toolBar()->button("Info")->isEnabled());
        QVERIFY(!m_f.view->toolBar()->button("Close")->isEnabled());
    }

    void filterAndPathFieldsFromTheKeyboard()
    {
        FilePane *pane = m_f.view->leftPane();
        auto *filter = pane->findChild<QLineEdit *>("filterField");
        auto *path = pane->findChild<QLineEdit *>("pathField");
        m_f.view->model().setActiveLeft(false);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab); // back to the left pane
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_K, Qt::ControlModifier);
        QCOMPARE(QApplication::focusWidget(), filter);
        QTest::keyClicks(filter, "c.");
        QCOMPARE(m_f.left().filter(), QString("c."));
        QTest::keyClick(filter, Qt::Key_Down); // into the list, the filter kept
        QVERIFY(!qobject_cast<QLineEdit *>(QApplication::focusWidget()));
        QCOMPARE(m_f.left().filter(), QString("c."));
        QTest::keyClick(m_f.view.get(), Qt::Key_Space);
        QCOMPARE(m_f.left().selection(), (std::set<fs::path>{*m_f.tree / "Left/c.txt"}));
        QTest::keyClick(m_f.view.get(), Qt::Key_K, Qt::ControlModifier);
        QTest::keyClick(filter, Qt::Key_Escape); // clears it and gives the keys back
        QCOMPARE(m_f.left().filter(), QString());
        QVERIFY(!qobject_cast<QLineEdit *>(QApplication::focusWidget()));

        QTest::keyClick(m_f.view.get(), Qt::Key_L, Qt::ControlModifier);
        QCOMPARE(QApplication::focusWidget(), path);
        QTest::keyClicks(path, "/nowhere");
        QTest::keyClick(path, Qt::Key_Escape);
        QCOMPARE(path->text(), m_f.left().path());
        QCOMPARE(m_f.left().directory(), *m_f.tree / "Left");
        m_f.left().setCursor(*m_f.tree / "Left/alpha");
        QTest::keyClick(m_f.view.get(), Qt::Key_Down);
        QCOMPARE(m_f.left().cursor(), std::optional(*m_f.tree / "Left/b.txt"));
    }

    void typedNamesTabsAndOrderFromTheKeyboard()
    {
        PaneModel &left = m_f.left();
        QWidget *window = m_f.view.get();
        QTest::keyClicks(window, "c.t"); // typed together: one name
        QCOMPARE(left.cursor(), std::optional(*m_f.tree / "Left/c.txt"));
        QTest::keyClicks(window, "q"); // matches nothing: kept where it was
        QCOMPARE(left.cursor(), std::optional(*m_f.tree / "Left/c.txt"));

        QTest::keyClick(window, Qt::Key_T, Qt::ControlModifier);
        left.navigate(*m_f.tree / "Left/alpha");
        QCOMPARE(left.tabIndex(), 1);
        QTest::keyClick(window, Qt::Key_Tab, Qt::ControlModifier);
        QCOMPARE(left.tabIndex(), 0);
        QCOMPARE(left.directory(), *m_f.tree / "Left");
        QTest::keyClick(window, Qt::Key_Backtab, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(left.tabIndex(), 1);
        QCOMPARE(left.directory(), *m_f.tree / "Left/alpha");

        QTest::keyClick(window, Qt::Key_2, Qt::ControlModifier);
        QCOMPARE(left.sort(), FileSort::size);
        QVERIFY(left.ascending());
        QTest::keyClick(window, Qt::Key_2, Qt::ControlModifier);
        QVERIFY(!left.ascending());
        QTest::keyClick(window, Qt::Key_1, Qt::ControlModifier);
        QCOMPARE(left.sort(), FileSort::name);
    }

    void menusOfThePaneOpenFromTheKeyboard()
    {
        QTest::keyClick(m_f.view.get(), Qt::Key_D, Qt::ControlModifier);
        QMenu *favourites = m_f.view->leftPane()->headerBar()->favouritesMenu();
        QTRY_VERIFY(favourites->isVisible());
        QTest::keyClick(favourites, Qt::Key_Down); // its first item: "Favourite this folder"
        QTest::keyClick(favourites, Qt::Key_Return);
        QTRY_VERIFY(!favourites->isVisible());
        QCOMPARE(m_f.left().favourites(), std::vector<fs::path>{*m_f.tree / "Left"});
        QTest::keyClick(m_f.view.get(), Qt::Key_D, Qt::ControlModifier | Qt::ShiftModifier);
        QMenu *locations = m_f.view->leftPane()->headerBar()->locationsMenu();
        QTRY_VERIFY(locations->isVisible());
        QTest::keyClick(locations, Qt::Key_Escape);
        QTRY_VERIFY(!locations->isVisible());
    }

    void tagByPatternTagsTheMatchingNames()
    {
        PaneModel &left = m_f.left();
        QCOMPARE(tagMatching(left, "*.TXT; alp*"), 4);
        QCOMPARE(tagMatching(left, "c*"), 0); // already tagged
        left.setSelection({});
        QCOMPARE(tagMatching(left, "[bc].txt"), 2);
        QCOMPARE(left.selection(), (std::set<fs::path>{*m_f.tree / "Left/b.txt", *m_f.tree / "Left/c.txt"}));
    }

    // The window comes back where it was and as large, maximized if it was, unless
    // its place is on no screen there now.
    void theWindowsPlaceIsRememberedWhileItIsOnAScreen()
    {
        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        const QRect placement(screen.topLeft() + QPoint(30, 20), QSize(940, 510));
        m_f.view->setGeometry(placement);
        QTRY_COMPARE(m_f.view->geometry(), placement);
        const auto reopen = [&] {
            m_f.tearDown();
            m_f.setUp();
        };
        reopen();
        QCOMPARE(m_f.view->geometry(), placement);
        QVERIFY(!m_f.view->isMaximized());
        m_f.view->showMaximized();
        QTRY_VERIFY(m_f.view->isMaximized());
        reopen();
        QVERIFY(m_f.view->isMaximized());
        QCOMPARE(m_f.view->normalGeometry(), placement);
        // A place on a screen unplugged since is not taken up again.
        m_f.view->showNormal();
        m_f.view->setGeometry(QRect(screen.topRight() + QPoint(4000, 0), QSize(940, 510)));
        reopen();
        QCOMPARE(m_f.view->size(), QSize(1180, 740));
        QVERIFY(QGuiApplication::screenAt(m_f.view->geometry().center()));
    }

private:
    std::set<fs::path> leftItems(const char *names) const
    {
        std::set<fs::path> items;
        for (const QString &item : QString(names).split(',', Qt::SkipEmptyParts))
            items.insert(*m_f.tree / "Left" / item.toStdString());
        return items;
    }

    WindowFixture m_f;
};

QTEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
