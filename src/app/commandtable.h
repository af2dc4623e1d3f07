#pragma once

#include <QKeyCombination>
#include <QList>
#include <QString>
#include <functional>
#include <optional>
#include <vector>

namespace quillorn {

// One command of the main window, defined once: the key handler's extra rows,
// the tool bar, the function-key bar, the application menu, the panes' context
// menu and the help's key list are all made from these entries.
struct Command {
    // What invoke is told about the key that ran it.
    struct Invocation {
        bool extending = false; // Shift held on a navigation key
    };

    QString id = {};   // stable, for lookups and tests: "pageDown"
    QString text = {}; // what buttons, menus and the help show: "Tag by pattern…"
    // What the help says where `text` is too short out of its button; empty: text.
    QString help = {};
    // What menus show where `text` is the function-key bar's short label; empty: text.
    QString menuText = {};
    // What menus and the help name the command by at this moment, where that
    // follows the state ("Undo rename ‘a’ → ‘b’"); empty, or empty text: as above.
    std::function<QString()> currentText = {};
    // Extra key rows. The fixed keys of the panes (F1…F10, the Ctrl letters,
    // Return, Tab, Space, Backspace, the arrows) are not repeated here.
    QList<QKeyCombination> keys = {};
    // Shift is also accepted with each key and then extends the tags.
    bool shiftExtends = false;
    // How the help and menus name the command's keys where that is not just the
    // first key, such as "PgUp / PgDn" or "F5".
    QString keyText = {};
    // 1…10: the button of the function-key bar, which shows `text` beside the key.
    int functionKey = 0;
    // A tool bar button with this symbol (detail::ToolbarSymbol); -1: none.
    int toolBarSymbol = -1;
    // The menu of the menu bar that lists it, by title; empty: none.
    QString menu = {};
    // The keys are the menu item's own shortcut, which works wherever the window
    // has the keyboard, text fields included, rather than a row of the key handler.
    bool menuShortcut = false;
    // Whether the command can run now; empty: always. Buttons grey out and keys
    // are left alone while it is false.
    std::function<bool()> enabled = {};
    std::function<void(const Invocation &)> invoke = {};
    // A menu entry with a check mark, set while this says so; empty: not checkable.
    std::function<bool()> checked = {};
    // A menu entry with a submenu of these commands, asked for each time it
    // opens; empty: none. Run without its submenu, the command does `invoke`.
    std::function<std::vector<Command>()> choices = {};

    bool isEnabled() const { return !enabled || enabled(); }
    // currentText when it names the command now, else text.
    QString shownText() const;
    // currentText when it names the command now, else menuText, else text.
    QString menuLabel() const;
    // The key as the help and menus name it; empty without one.
    QString shownKey() const;
};

class CommandTable {
public:
    CommandTable() = default;
    explicit CommandTable(std::vector<Command> commands);

    const std::vector<Command> &commands() const { return m_commands; }
    const Command *find(const QString &id) const;
    // The command whose key row matches, with whether Shift extends. Modifiers
    // other than Ctrl, Alt, Shift and Meta (the keypad's) are ignored.
    struct Match {
        const Command *command = nullptr;
        bool extending = false;
    };
    std::optional<Match> match(int key, Qt::KeyboardModifiers modifiers) const;
    // Runs the command when it is enabled; false when there is none or it is not.
    bool run(const QString &id, Command::Invocation invocation = {}) const;

    // The function keys on one line, then a line per other command with a key,
    // "key: text", in table order.
    QString keyList() const;

private:
    std::vector<Command> m_commands;
};

} // namespace quillorn
