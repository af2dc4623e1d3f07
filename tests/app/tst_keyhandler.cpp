#include "app/keyhandler.h"
#include "model/commandermodel.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

// A focusable widget that records the keys nobody consumed before it.
class Probe : public QWidget {
public:
    Probe() { setFocusPolicy(Qt::StrongFocus); }
    QList<int> keys;

protected:
    bool event(QEvent *event) override
    {
        // Before QWidget::event, which turns Tab into focus movement.
        if (event->type() == QEvent::KeyPress)
            keys << static_cast<QKeyEvent *>(event)->key();
        return QWidget::event(event);
    }
};

QString name(const fs::path &path)
{
    return QString::fromStdString(path.filename().string());
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
    {"Ctrl+T new tab", Qt::Key_T, ctrl, 1, "", "b.txt", "", "tabs:2"},
    {"Ctrl+W with one tab goes on", Qt::Key_W, ctrl, 1, "", "b.txt", "", "goes on"},
    {"Ctrl+F search", Qt::Key_F, ctrl, 1, "", "b.txt", "", "tool:search:Left"},
    {"Ctrl+I info", Qt::Key_I, ctrl, 2, "", "c.txt", "", "tool:info:c.txt"},
    {"Ctrl+R refresh", Qt::Key_R, ctrl, 1, "", "b.txt", "", "refresh"},
    {"Ctrl+A select all", Qt::Key_A, ctrl, 3, "", "alpha", "alpha,b.txt,c.txt,d.txt", ""},
    {"Ctrl+Shift+. shows hidden", Qt::Key_Period, ctrl | shift, 1, "", "b.txt", "", "hidden"},
    {"Ctrl+Shift+. as > on a US layout", Qt::Key_Greater, ctrl | shift, 1, "", "b.txt", "", "hidden"},
    {"Ctrl+. without Shift goes on", Qt::Key_Period, ctrl, 1, "", "b.txt", "", "goes on"},
    {"Ctrl+Down is not a cursor key", Qt::Key_Down, ctrl, 1, "", "b.txt", "", "goes on"},
    {"Return opens the cursor folder, not the tags", Qt::Key_Return, none, 0, "c.txt", "", "", "dir:alpha"},
    {"Return without cursor opens the first tagged", Qt::Key_Return, none, -1, "d.txt,alpha", "", "",
     "dir:alpha"},
    {"Return with nothing to open", Qt::Key_Return, none, -1, "", "", "", ""},
    {"Tab switches pane", Qt::Key_Tab, none, 1, "", "b.txt", "", "pane:right"},
    {"Shift+Tab switches pane", Qt::Key_Backtab, shift, 1, "", "b.txt", "", "pane:right"},
    {"Space tags and advances", Qt::Key_Space, none, 1, "", "c.txt", "b.txt", ""},
    {"Backspace goes to the parent", Qt::Key_Backspace, none, 1, "", "", "", "dir:parent"},
    {"Down from no cursor lands on the first", Qt::Key_Down, none, -1, "", "alpha", "", ""},
    {"Shift+Down extends the tags", Qt::Key_Down, shift, 1, "", "c.txt", "c.txt", ""},
    {"Shift+Up extends the tags", Qt::Key_Up, shift, 2, "d.txt", "b.txt", "b.txt,d.txt", ""},
    {"Alt+Up still moves", Qt::Key_Up, alt, 2, "", "b.txt", "", ""},
    {"a plain letter goes on", Qt::Key_X, none, 1, "", "b.txt", "", "goes on"},
};

} // namespace

// Replays keys on a real window over two real folders and checks what moved:
// cursor, tags, the command run and whether the key went on to the focused widget.
class KeyHandlerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((m_home / "config").string()));
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((m_home / "data").string()));
    }

    void init()
    {
        m_tree = std::make_unique<test::TestTree>();
        m_tree->folder("Left/alpha");
        for (const char *file : {"Left/b.txt", "Left/c.txt", "Left/d.txt", "Left/.hidden", "Right/r.txt"})
            m_tree->file(file, "x");
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((*m_tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((*m_tree / "Right").string()));
        m_calls.clear();
        CommanderModelOptions options;
        options.panes.metadataIntervalMs = 3'600'000;
        options.panes.preferences = &m_preferences;
        DesktopServices &desktop = options.desktop;
        desktop.alert = [this](const AlertRequest &alert) {
            m_calls << "alert:" + alert.message;
            return 1;
        };
        desktop.prompt = [this](const QString &title, const QString &) -> std::optional<QString> {
            m_calls << "prompt:" + title;
            return std::nullopt;
        };
        desktop.preview = [this](const fs::path &item, auto) { m_calls << "preview:" + name(item); };
        desktop.writeClipboard = [this](const auto &items) {
            m_calls << "clipboard:" + QString::number(items.size());
        };
        desktop.readClipboard = [this] { return std::vector<fs::path>{*m_tree / "Right/r.txt"}; };
        desktop.requestQuit = [this] { m_calls << "quit"; };
        m_model = std::make_unique<CommanderModel>(std::move(options));
        for (PaneModel *pane : {&m_model->left(), &m_model->right()}) {
            QSignalSpy listed(pane, &PaneModel::listingApplied);
            QVERIFY(!pane->loading() || listed.wait());
        }
        m_window = std::make_unique<QWidget>();
        auto *layout = new QVBoxLayout(m_window.get());
        layout->addWidget(m_field = new QLineEdit);
        layout->addWidget(m_probe = new Probe);
        m_handler = std::make_unique<KeyHandler>(*m_model, KeyHandler::windowGate(*m_model, m_window.get()));
        qApp->installEventFilter(m_handler.get());
        m_window->show();
        QApplication::setActiveWindow(m_window.get());
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
        m_probe->setFocus();
    }

    void cleanup()
    {
        m_handler.reset();
        m_window.reset();
        m_model.reset();
        m_tree.reset();
    }

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
        PaneModel &left = m_model->left();
        QCOMPARE(int(left.visible().size()), 4);
        left.setCursor(row.cursorBefore < 0
                           ? std::nullopt
                           : std::optional(left.visible()[std::size_t(row.cursorBefore)].url()));
        left.setSelection(leftItems(row.tagsBefore));
        const fs::path before = left.directory();
        const QString effect = row.effect;
        QSignalSpy leftListed(&left, &PaneModel::listingApplied);
        QSignalSpy rightListed(&m_model->right(), &PaneModel::listingApplied);

        QTest::keyClick(m_probe, Qt::Key(row.key), Qt::KeyboardModifiers(row.modifiers));

        QStringList effects = m_calls;
        if (m_probe->keys.contains(row.key))
            effects << "goes on";
        if (effect == "refresh") {
            QVERIFY(leftListed.count() > 0 || leftListed.wait());
            QVERIFY(rightListed.count() > 0 || rightListed.wait());
            effects << "refresh";
        }
        if (const auto &tool = m_model->tool()) {
            QString text = "tool:" + tool->id();
            if (const auto *transfer = tool->as<ToolSheet::Transfer>())
                text += transfer->move ? ":move" : ":copy";
            if (const auto *search = tool->as<ToolSheet::Search>())
                text += ":" + name(search->root);
            if (const auto *info = tool->as<ToolSheet::Info>())
                text += ":" + name(info->item);
            effects << text;
        }
        if (!m_model->activeLeft())
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
        PaneModel &left = m_model->left();
        QSignalSpy listed(&left, &PaneModel::listingApplied);
        left.navigate(m_tree->folder("Empty"));
        QVERIFY(listed.wait());
        left.setSelection({*m_tree / "Left/b.txt"});
        QTest::keyClick(m_probe, Qt::Key_A, Qt::ControlModifier);
        QVERIFY(left.selection().empty());
        QVERIFY(!left.cursor());
    }

    void typingInATextFieldEditsTheField()
    {
        m_field->setFocus();
        QTest::keyClicks(m_field, "abc");
        QTest::keyClick(m_field, Qt::Key_Backspace);
        QTest::keyClick(m_field, Qt::Key_Space);
        QCOMPARE(m_field->text(), QStringLiteral("ab "));
        QCOMPARE(m_model->left().directory(), *m_tree / "Left");
        QVERIFY(m_model->left().selection().empty());
    }

    void keysActOnTheActivePaneOfTheActiveWindowOnly()
    {
        m_model->right().setCursor(std::nullopt);
        m_model->setActiveLeft(false);
        QTest::keyClick(m_probe, Qt::Key_Down);
        QCOMPARE(m_model->right().cursor(), std::optional(*m_tree / "Right/r.txt"));
        QWidget other;
        auto *probe = new Probe;
        (new QVBoxLayout(&other))->addWidget(probe);
        other.show();
        QApplication::setActiveWindow(&other);
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QTest::keyClick(probe, Qt::Key_Tab);
        QCOMPARE(probe->keys, QList<int>{Qt::Key_Tab});
        QVERIFY(!m_model->activeLeft());
    }

private:
    std::set<fs::path> leftItems(const char *names) const
    {
        std::set<fs::path> items;
        for (const QString &item : QString(names).split(',', Qt::SkipEmptyParts))
            items.insert(*m_tree / "Left" / item.toStdString());
        return items;
    }

    test::TestTree m_home;
    Preferences m_preferences{QString::fromStdString((m_home / "prefs.ini").string())};
    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<CommanderModel> m_model;
    std::unique_ptr<QWidget> m_window;
    std::unique_ptr<KeyHandler> m_handler;
    QLineEdit *m_field = nullptr;
    Probe *m_probe = nullptr;
    QStringList m_calls;
};

QTEST_MAIN(KeyHandlerTest)
#include "tst_keyhandler.moc"
