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

QString names(const std::set<fs::path> &paths)
{
    QStringList list;
    for (const fs::path &path : paths)
        list << QString::fromStdString(path.filename().string());
    list.sort();
    return list.join(',');
}

} // namespace

// Replays keys on a real window over two real folders and checks what moved:
// cursor, tags, the command run (tool sheet, alert, prompt...) and whether the
// key went on to the focused widget.
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
        m_tree->file("Left/b.txt", "b");
        m_tree->file("Left/c.txt", "c");
        m_tree->file("Left/d.txt", "d");
        m_tree->file("Left/.hidden", "h");
        m_tree->file("Right/r.txt", "r");
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((*m_tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((*m_tree / "Right").string()));

        m_calls.clear();
        CommanderModelOptions options;
        options.panes.metadataIntervalMs = 3'600'000;
        options.panes.preferences = &m_preferences;
        options.desktop.alert = [this](const AlertRequest &alert) {
            m_calls << "alert:" + alert.message;
            return 1;
        };
        options.desktop.prompt = [this](const QString &title, const QString &) -> std::optional<QString> {
            m_calls << "prompt:" + title;
            return std::nullopt;
        };
        options.desktop.preview = [this](const fs::path &item, auto) {
            m_calls << "preview:" + QString::fromStdString(item.filename().string());
        };
        options.desktop.writeClipboard = [this](const std::vector<fs::path> &items) {
            m_calls << "clipboard:" + QString::number(items.size());
        };
        options.desktop.readClipboard = [this] { return std::vector<fs::path>{*m_tree / "Right/r.txt"}; };
        options.desktop.requestQuit = [this] { m_calls << "quit"; };
        m_model = std::make_unique<CommanderModel>(std::move(options));
        QSignalSpy leftListed(&m_model->left(), &PaneModel::listingApplied);
        QSignalSpy rightListed(&m_model->right(), &PaneModel::listingApplied);
        QVERIFY(leftListed.count() > 0 || leftListed.wait());
        QVERIFY(rightListed.count() > 0 || rightListed.wait());

        m_window = std::make_unique<QWidget>();
        auto *layout = new QVBoxLayout(m_window.get());
        m_field = new QLineEdit(m_window.get());
        m_probe = new Probe;
        layout->addWidget(m_field);
        layout->addWidget(m_probe);
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
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<int>("cursorBefore"); // row of the left listing, -1: none
        QTest::addColumn<QString>("tagsBefore");
        QTest::addColumn<QString>("cursorAfter"); // name, "" for none
        QTest::addColumn<QString>("tagsAfter");
        QTest::addColumn<QString>("effect");
        QTest::addColumn<bool>("consumed");

        const int none = Qt::NoModifier, ctrl = Qt::ControlModifier, shift = Qt::ShiftModifier,
                  alt = Qt::AltModifier;
        // Left rows: alpha, b.txt, c.txt, d.txt (folders first, hidden items hidden).
        auto row = [](const char *name) -> QTestData & { return QTest::newRow(name); };
        row("F1 help") << int(Qt::Key_F1) << none << 1 << ""
                       << "b.txt"
                       << ""
                       << "alert:Keyboard help" << true;
        row("F2 rename") << int(Qt::Key_F2) << none << 1 << ""
                         << "b.txt"
                         << ""
                         << "prompt:Rename" << true;
        row("F2 with two tagged does nothing") << int(Qt::Key_F2) << none << 1 << "b.txt,c.txt"
                                               << "b.txt"
                                               << "b.txt,c.txt"
                                               << "" << true;
        row("F3 view") << int(Qt::Key_F3) << none << 2 << ""
                       << "c.txt"
                       << ""
                       << "preview:c.txt" << true;
        row("F4 edit") << int(Qt::Key_F4) << none << 3 << ""
                       << "d.txt"
                       << ""
                       << "tool:editor" << true;
        row("F5 copy") << int(Qt::Key_F5) << none << 1 << ""
                       << "b.txt"
                       << ""
                       << "tool:transfer:copy" << true;
        row("F5 with Shift still copies") << int(Qt::Key_F5) << shift << 1 << ""
                                          << "b.txt"
                                          << ""
                                          << "tool:transfer:copy" << true;
        row("F5 with Alt still copies") << int(Qt::Key_F5) << alt << 1 << ""
                                        << "b.txt"
                                        << ""
                                        << "tool:transfer:copy" << true;
        row("F5 with nothing to copy") << int(Qt::Key_F5) << none << -1 << ""
                                       << ""
                                       << ""
                                       << "" << true;
        row("F6 move") << int(Qt::Key_F6) << none << 1 << ""
                       << "b.txt"
                       << ""
                       << "tool:transfer:move" << true;
        row("F7 new folder") << int(Qt::Key_F7) << none << -1 << ""
                             << ""
                             << ""
                             << "prompt:New folder" << true;
        row("F8 trash") << int(Qt::Key_F8) << none << 2 << ""
                        << "c.txt"
                        << ""
                        << "alert:Delete selected items?" << true;
        row("F9 refresh") << int(Qt::Key_F9) << none << 1 << ""
                          << "b.txt"
                          << ""
                          << "refresh" << true;
        row("F10 quit") << int(Qt::Key_F10) << ctrl << 1 << ""
                        << "b.txt"
                        << ""
                        << "quit" << true;
        row("Ctrl+C copies references") << int(Qt::Key_C) << ctrl << 1 << "c.txt,d.txt"
                                        << "b.txt"
                                        << "c.txt,d.txt"
                                        << "clipboard:2" << true;
        row("Ctrl+V offers a paste") << int(Qt::Key_V) << ctrl << 1 << ""
                                     << "b.txt"
                                     << ""
                                     << "tool:transfer:copy" << true;
        row("Ctrl+T new tab") << int(Qt::Key_T) << ctrl << 1 << ""
                              << "b.txt"
                              << ""
                              << "tabs:2" << true;
        row("Ctrl+W with one tab goes on") << int(Qt::Key_W) << ctrl << 1 << ""
                                           << "b.txt"
                                           << ""
                                           << "" << false;
        row("Ctrl+F search") << int(Qt::Key_F) << ctrl << 1 << ""
                             << "b.txt"
                             << ""
                             << "tool:search:Left" << true;
        row("Ctrl+I info") << int(Qt::Key_I) << ctrl << 2 << ""
                           << "c.txt"
                           << ""
                           << "tool:info:c.txt" << true;
        row("Ctrl+I with nothing selected") << int(Qt::Key_I) << ctrl << -1 << ""
                                            << ""
                                            << ""
                                            << "" << true;
        row("Ctrl+R refresh") << int(Qt::Key_R) << ctrl << 1 << ""
                              << "b.txt"
                              << ""
                              << "refresh" << true;
        row("Ctrl+A select all") << int(Qt::Key_A) << ctrl << 3 << ""
                                 << "alpha"
                                 << "alpha,b.txt,c.txt,d.txt"
                                 << "" << true;
        row("Ctrl+Shift+. shows hidden items") << int(Qt::Key_Period) << ctrl + shift << 1 << ""
                                               << "b.txt"
                                               << ""
                                               << "hidden" << true;
        row("Ctrl+Shift+. as > on a US layout") << int(Qt::Key_Greater) << ctrl + shift << 1 << ""
                                                << "b.txt"
                                                << ""
                                                << "hidden" << true;
        row("Ctrl+. without Shift goes on") << int(Qt::Key_Period) << ctrl << 1 << ""
                                            << "b.txt"
                                            << ""
                                            << "" << false;
        row("Ctrl+unknown letter goes on") << int(Qt::Key_K) << ctrl << 1 << ""
                                           << "b.txt"
                                           << ""
                                           << "" << false;
        row("Ctrl+Down is not a cursor key") << int(Qt::Key_Down) << ctrl << 1 << ""
                                             << "b.txt"
                                             << ""
                                             << "" << false;
        row("Return opens the cursor folder though others are tagged")
            << int(Qt::Key_Return) << none << 0 << "c.txt"
            << ""
            << ""
            << "dir:alpha" << true;
        row("Return without cursor opens the first tagged")
            << int(Qt::Key_Return) << none << -1 << "d.txt,alpha"
            << ""
            << ""
            << "dir:alpha" << true;
        row("Enter on the keypad opens too") << int(Qt::Key_Enter) << none << 0 << ""
                                             << ""
                                             << ""
                                             << "dir:alpha" << true;
        row("Return with nothing to open") << int(Qt::Key_Return) << none << -1 << ""
                                           << ""
                                           << ""
                                           << "" << true;
        row("Tab switches pane") << int(Qt::Key_Tab) << none << 1 << ""
                                 << "b.txt"
                                 << ""
                                 << "pane:right" << true;
        row("Shift+Tab switches pane") << int(Qt::Key_Backtab) << shift << 1 << ""
                                       << "b.txt"
                                       << ""
                                       << "pane:right" << true;
        row("Space tags and advances") << int(Qt::Key_Space) << none << 1 << ""
                                       << "c.txt"
                                       << "b.txt"
                                       << "" << true;
        row("Space on the last row stays") << int(Qt::Key_Space) << none << 3 << "d.txt"
                                           << "d.txt"
                                           << ""
                                           << "" << true;
        row("Backspace goes to the parent") << int(Qt::Key_Backspace) << none << 1 << ""
                                            << ""
                                            << ""
                                            << "dir:parent" << true;
        row("Down moves the cursor only") << int(Qt::Key_Down) << none << 1 << ""
                                          << "c.txt"
                                          << ""
                                          << "" << true;
        row("Down from no cursor lands on the first") << int(Qt::Key_Down) << none << -1 << ""
                                                      << "alpha"
                                                      << ""
                                                      << "" << true;
        row("Shift+Down extends the tags") << int(Qt::Key_Down) << shift << 1 << ""
                                           << "c.txt"
                                           << "c.txt"
                                           << "" << true;
        row("Up moves the cursor") << int(Qt::Key_Up) << none << 2 << ""
                                   << "b.txt"
                                   << ""
                                   << "" << true;
        row("Up from no cursor lands on the last") << int(Qt::Key_Up) << none << -1 << ""
                                                   << "d.txt"
                                                   << ""
                                                   << "" << true;
        row("Shift+Up extends the tags") << int(Qt::Key_Up) << shift << 2 << "d.txt"
                                         << "b.txt"
                                         << "b.txt,d.txt"
                                         << "" << true;
        row("Alt+Up still moves") << int(Qt::Key_Up) << alt << 2 << ""
                                  << "b.txt"
                                  << ""
                                  << "" << true;
        row("a plain letter goes on") << int(Qt::Key_X) << none << 1 << ""
                                      << "b.txt"
                                      << ""
                                      << "" << false;
    }

    void keyTable()
    {
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(int, cursorBefore);
        QFETCH(QString, tagsBefore);
        QFETCH(QString, cursorAfter);
        QFETCH(QString, tagsAfter);
        QFETCH(QString, effect);
        QFETCH(bool, consumed);

        PaneModel &left = m_model->left();
        QCOMPARE(int(left.visible().size()), 4);
        left.setCursor(cursorBefore < 0 ? std::nullopt
                                        : std::optional(left.visible()[std::size_t(cursorBefore)].url()));
        std::set<fs::path> tags;
        for (const QString &name : tagsBefore.split(',', Qt::SkipEmptyParts))
            tags.insert(*m_tree / "Left" / name.toStdString());
        left.setSelection(tags);
        const fs::path before = left.directory();
        QSignalSpy leftListed(&left, &PaneModel::listingApplied);
        QSignalSpy rightListed(&m_model->right(), &PaneModel::listingApplied);

        QTest::keyClick(m_probe, Qt::Key(key), Qt::KeyboardModifiers(modifiers));

        QCOMPARE(m_probe->keys.contains(key), !consumed);
        if (effect == "refresh") {
            QVERIFY(leftListed.count() > 0 || leftListed.wait());
            QVERIFY(rightListed.count() > 0 || rightListed.wait());
        }
        QStringList effects = m_calls;
        if (const auto &tool = m_model->tool()) {
            QString text = "tool:" + tool->id();
            if (const auto *transfer = tool->as<ToolSheet::Transfer>())
                text += transfer->move ? ":move" : ":copy";
            if (const auto *search = tool->as<ToolSheet::Search>())
                text += ":" + QString::fromStdString(search->root.filename().string());
            if (const auto *info = tool->as<ToolSheet::Info>())
                text += ":" + QString::fromStdString(info->item.filename().string());
            effects << text;
        }
        if (!m_model->activeLeft())
            effects << "pane:right";
        if (left.showHidden())
            effects << "hidden";
        if (left.tabs().size() != 1)
            effects << "tabs:" + QString::number(left.tabs().size());
        if (left.directory() != before)
            effects << (left.directory() == before.parent_path()
                            ? QStringLiteral("dir:parent")
                            : "dir:" + QString::fromStdString(left.directory().filename().string()));
        if (effect == "refresh")
            effects << "refresh";
        QCOMPARE(effects.join(' '), effect);
        if (!effect.startsWith("dir:")) {
            QCOMPARE(left.cursor() ? QString::fromStdString(left.cursor()->filename().string()) : QString(),
                     cursorAfter);
            QCOMPARE(names(left.selection()), tagsAfter);
        }
    }

    void ctrlWClosesTheCurrentTabWhenThereAreTwo()
    {
        m_model->left().newTab();
        QCOMPARE(int(m_model->left().tabs().size()), 2);
        QTest::keyClick(m_probe, Qt::Key_W, Qt::ControlModifier);
        QCOMPARE(int(m_model->left().tabs().size()), 1);
        QVERIFY(!m_probe->keys.contains(Qt::Key_W));
    }

    void ctrlAOnAnEmptyFolderEmptiesSelectionAndCursor()
    {
        m_tree->folder("Empty");
        PaneModel &left = m_model->left();
        left.setSelection({*m_tree / "Left/b.txt"});
        QSignalSpy listed(&left, &PaneModel::listingApplied);
        left.navigate(*m_tree / "Empty");
        QVERIFY(listed.wait());
        left.setSelection({*m_tree / "Left/b.txt"});
        QTest::keyClick(m_probe, Qt::Key_A, Qt::ControlModifier);
        QVERIFY(left.selection().empty());
        QVERIFY(!left.cursor());
    }

    void keysActOnTheActivePane()
    {
        m_model->left().setCursor(std::nullopt);
        m_model->right().setCursor(std::nullopt);
        m_model->setActiveLeft(false);
        QTest::keyClick(m_probe, Qt::Key_Down);
        QCOMPARE(m_model->right().cursor(), std::optional(*m_tree / "Right/r.txt"));
        QVERIFY(!m_model->left().cursor());
    }

    // The gate: the window stays silent while something else has the keyboard.

    void keysGoToAnOpenSheet()
    {
        m_model->left().setCursor(m_model->left().visible()[1].url());
        m_model->setTool(ToolSheet::Connect{});
        for (int key : {int(Qt::Key_Tab), int(Qt::Key_Space), int(Qt::Key_F5)})
            QTest::keyClick(m_probe, Qt::Key(key));
        QCOMPARE(m_probe->keys, (QList<int>{Qt::Key_Tab, Qt::Key_Space, Qt::Key_F5}));
        QVERIFY(m_model->activeLeft());
        QVERIFY(m_model->left().selection().empty());
        QVERIFY(m_model->tool()->is<ToolSheet::Connect>());

        m_model->setTool(std::nullopt);
        m_probe->setFocus(); // the unhandled Tab moved the focus on
        QTest::keyClick(m_probe, Qt::Key_Tab);
        QVERIFY(!m_model->activeLeft());
    }

    void typingInATextFieldEditsTheField()
    {
        m_field->setFocus();
        const fs::path before = m_model->left().directory();
        QTest::keyClicks(m_field, "abc");
        QTest::keyClick(m_field, Qt::Key_Backspace);
        QTest::keyClick(m_field, Qt::Key_Space);
        QCOMPARE(m_field->text(), QStringLiteral("ab "));
        QCOMPARE(m_model->left().directory(), before);
        QVERIFY(m_model->left().selection().empty());
    }

    void returnGoesToAnAlert()
    {
        QMessageBox box(QMessageBox::Information, "Alert", "Text", QMessageBox::Ok, m_window.get());
        box.setWindowModality(Qt::ApplicationModal);
        QSignalSpy finished(&box, &QMessageBox::finished);
        box.open();
        QVERIFY(QTest::qWaitForWindowExposed(&box));
        m_model->left().setCursor(m_model->left().visible()[0].url());
        QTest::keyClick(&box, Qt::Key_Return);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(m_model->left().directory(), *m_tree / "Left");
    }

    void keysOfAnotherWindowAreLeftAlone()
    {
        QWidget other;
        auto *probe = new Probe;
        (new QVBoxLayout(&other))->addWidget(probe);
        other.show();
        QApplication::setActiveWindow(&other);
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QTest::keyClick(probe, Qt::Key_Tab);
        QCOMPARE(probe->keys, QList<int>{Qt::Key_Tab});
        QVERIFY(m_model->activeLeft());
    }

private:
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
