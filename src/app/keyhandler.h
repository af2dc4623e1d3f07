#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <Qt>
#include <functional>
#include <optional>

class QKeyEvent;
class QWidget;

namespace quillorn {

class CommanderModel;
class CommandTable;

// The main window's keyboard: an application event filter that turns key
// presses into commands of the application model and its active pane. Drawing
// knows nothing of keys; this class knows nothing of drawing.
//
// A gate decides first whether the window may take a key at all; it says no
// while a tool sheet, an alert or a text field has the keyboard, so those get
// every key untouched. Keys the table does not know, and the few rows that
// decline (Ctrl+W with one tab, Ctrl+. without Shift, Ctrl+Shift with a
// letter), go on to the window's command table, whose key rows come after the
// fixed ones and never replace them; a disabled command leaves its key alone.
// Then letters and digits typed
// without Ctrl or Alt move the cursor to the first name that starts with what
// was typed within the platform's keyboard-search interval. Whatever is left
// goes on to normal handling: menus and the window's own shortcuts. Ctrl
// stands where other desktops have Command. Inside a widget marked with the
// property "ownsNavigationKeys" (the queue panel) Tab, the arrows, Space,
// Return, Backspace and every other key without Ctrl are left to it.
class KeyHandler : public QObject {
    Q_OBJECT
public:
    // Whether the window may handle a key sent to `receiver`.
    using Gate = std::function<bool(const QObject *receiver)>;

    enum class Action {
        functionKey,
        clipboardCopy,
        clipboardPaste,
        newTab,
        closeTab,
        search,
        info,
        refresh,
        selectAll,
        toggleHidden,
        ignoredPeriod,
        open,
        switchPane,
        tagAndAdvance,
        parentFolder,
        cursorDown,
        cursorUp,
    };
    struct Binding {
        Action action;
        int functionNumber = 0; // 1...10 for functionKey
        bool extending = false; // Shift with the arrow keys
        friend bool operator==(const Binding &, const Binding &) = default;
    };

    // `commands` (may be null) must outlive the handler.
    KeyHandler(CommanderModel &model, Gate gate, const CommandTable *commands = nullptr,
               QObject *parent = nullptr);

    // The gate of a main window: refuses while a sheet is asked for or shown, an
    // alert or other modal window is up, another window has the keyboard, or a
    // text-editing widget has the focus.
    static Gate windowGate(CommanderModel &model, const QWidget *window);
    // Whether the window's keys move its active pane's cursor now: the window
    // is active with no alert up, and the focus is in no text field and in no
    // panel that moves its own focus.
    static bool panesHaveKeyboard(const QWidget *window);

    // The table row for a key, or none. `key` is Qt's key code, which for
    // shortcut letters follows the keyboard layout.
    static std::optional<Binding> binding(int key, Qt::KeyboardModifiers modifiers);

    // Runs the row for the key; true when the key is consumed. `text` is what
    // the key types, for the jump to a name.
    bool handle(int key, Qt::KeyboardModifiers modifiers, const QString &text = {});
    // Whether handle() would consume the key, without running anything.
    bool wouldConsume(int key, Qt::KeyboardModifiers modifiers, const QString &text = {}) const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool consumes(const Binding &binding) const;
    void run(const Binding &binding);
    void tagAndCount();
    void selectAll();
    void openCurrent();
    static bool typesName(Qt::KeyboardModifiers modifiers, const QString &text);
    void jumpToName(const QString &text);

    CommanderModel &m_model;
    Gate m_gate;
    const CommandTable *m_commands = nullptr;
    QString m_typed;
    QElapsedTimer m_typedAt;
};

} // namespace quillorn
