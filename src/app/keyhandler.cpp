#include "app/keyhandler.h"

#include "app/commandtable.h"
#include "model/commandermodel.h"
#include "platform/core/displaytext.h"
#include "platform/desktop/latinkey.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextEdit>
#include <QWidget>
#include <algorithm>
#include <array>

namespace quillorn {

namespace {

using Action = KeyHandler::Action;

constexpr std::array<int, 10> functionKeys{Qt::Key_F1, Qt::Key_F2, Qt::Key_F3, Qt::Key_F4, Qt::Key_F5,
                                           Qt::Key_F6, Qt::Key_F7, Qt::Key_F8, Qt::Key_F9, Qt::Key_F10};

struct CharacterRow {
    char character;
    Action action;
};
// Ctrl shortcuts, recognised by the character of the key without modifiers.
constexpr std::array<CharacterRow, 9> controlRows{{
    {'c', Action::clipboardCopy},
    {'v', Action::clipboardPaste},
    {'t', Action::newTab},
    {'w', Action::closeTab},
    {'f', Action::search},
    {'i', Action::info},
    {'r', Action::refresh},
    {'a', Action::selectAll},
    {'.', Action::ignoredPeriod},
}};

struct KeyRow {
    int key;
    Action action;
    // Held together, these leave the key to the window's commands.
    int leftToCommands = 0;
};
// Keys recognised by themselves, whatever Alt, Meta or Shift do; only
// Alt+Shift+Return (counting folder sizes) is not an opening Return.
constexpr int altShift = Qt::AltModifier | Qt::ShiftModifier;
constexpr std::array<KeyRow, 8> plainRows{{
    {Qt::Key_Return, Action::open, altShift},
    {Qt::Key_Enter, Action::open, altShift},
    {Qt::Key_Tab, Action::switchPane},
    {Qt::Key_Backtab, Action::switchPane}, // Shift+Tab arrives as its own key
    {Qt::Key_Space, Action::tagAndAdvance},
    {Qt::Key_Backspace, Action::parentFolder},
    {Qt::Key_Down, Action::cursorDown},
    {Qt::Key_Up, Action::cursorUp},
}};

// The character a key gives without modifiers. Qt reports letters in upper
// case whatever Shift does; with Shift held the US layout reports "." as ">",
// which is taken back to "." so that Ctrl+Shift+. toggles hidden items.
std::optional<char> unmodifiedCharacter(int key, Qt::KeyboardModifiers modifiers)
{
    if (key == Qt::Key_Greater && (modifiers & Qt::ShiftModifier))
        return '.';
    if (key < 0x20 || key > 0x7e)
        return std::nullopt;
    const char character = char(key);
    return character >= 'A' && character <= 'Z' ? char(character - 'A' + 'a') : character;
}

bool isTextEditor(const QWidget *widget)
{
    if (!widget)
        return false;
    if (const auto *line = qobject_cast<const QLineEdit *>(widget))
        return !line->isReadOnly();
    if (const auto *text = qobject_cast<const QTextEdit *>(widget))
        return !text->isReadOnly();
    if (const auto *plain = qobject_cast<const QPlainTextEdit *>(widget))
        return !plain->isReadOnly();
    if (const auto *combo = qobject_cast<const QComboBox *>(widget))
        return combo->isEditable();
    return qobject_cast<const QAbstractSpinBox *>(widget) != nullptr;
}

// Whether the key goes to a panel that moves its own keyboard focus.
bool inNavigatingPanel(const QObject *receiver)
{
    for (const QObject *object = receiver; object; object = object->parent())
        if (object->property("ownsNavigationKeys").toBool())
            return true;
    return false;
}

bool isNavigation(Action action)
{
    return std::any_of(plainRows.begin(), plainRows.end(),
                       [&](const KeyRow &row) { return row.action == action; });
}

} // namespace

KeyHandler::KeyHandler(CommanderModel &model, Gate gate, const CommandTable *commands, QObject *parent)
    : QObject(parent), m_model(model), m_gate(std::move(gate)), m_commands(commands)
{
}

KeyHandler::Gate KeyHandler::windowGate(CommanderModel &model, const QWidget *window)
{
    return [&model, window](const QObject *receiver) {
        if (model.tool())
            return false;
        const auto *widget = qobject_cast<const QWidget *>(receiver);
        if (!widget || widget->window() != window)
            return false; // another window, a sheet or an alert
        if (QApplication::activeWindow() != window)
            return false;
        if (QApplication::activeModalWidget())
            return false; // a sheet or an alert is up
        return !isTextEditor(QApplication::focusWidget()) && !isTextEditor(widget);
    };
}

bool KeyHandler::panesHaveKeyboard(const QWidget *window)
{
    const QWidget *focus = QApplication::focusWidget();
    return QApplication::activeWindow() == window && !QApplication::activeModalWidget() &&
           !isTextEditor(focus) && !inNavigatingPanel(focus);
}

std::optional<KeyHandler::Binding> KeyHandler::binding(int key, Qt::KeyboardModifiers modifiers)
{
    for (std::size_t index = 0; index < functionKeys.size(); ++index)
        if (functionKeys[index] == key)
            return Binding{Action::functionKey, int(index) + 1};

    if (modifiers & Qt::ControlModifier) {
        const std::optional<char> character = unmodifiedCharacter(key, modifiers);
        if (!character)
            return std::nullopt;
        // Ctrl+Shift with a letter is a chord of its own, left to the window's
        // commands (Ctrl+Shift+C copies paths where Ctrl+C copies references).
        if ((modifiers & Qt::ShiftModifier) && *character >= 'a' && *character <= 'z')
            return std::nullopt;
        for (const CharacterRow &row : controlRows) {
            if (row.character != *character)
                continue;
            if (row.action == Action::ignoredPeriod && (modifiers & Qt::ShiftModifier))
                return Binding{Action::toggleHidden};
            return Binding{row.action};
        }
        return std::nullopt;
    }

    for (const KeyRow &row : plainRows) {
        if (row.key != key)
            continue;
        if (row.leftToCommands != 0 && (int(modifiers) & row.leftToCommands) == row.leftToCommands)
            return std::nullopt;
        return Binding{row.action, 0, bool(modifiers & Qt::ShiftModifier)};
    }
    return std::nullopt;
}

bool KeyHandler::consumes(const Binding &binding) const
{
    switch (binding.action) {
    case Action::closeTab:
        return m_model.active().tabs().size() >= 2;
    case Action::ignoredPeriod:
        return false;
    default:
        return true;
    }
}

bool KeyHandler::wouldConsume(int key, Qt::KeyboardModifiers modifiers, const QString &text) const
{
    if (const std::optional<Binding> row = binding(key, modifiers))
        return consumes(*row);
    if (const auto command = m_commands ? m_commands->match(key, modifiers) : std::nullopt)
        return command->command->isEnabled() && command->command->invoke;
    return typesName(modifiers, text);
}

bool KeyHandler::handle(int key, Qt::KeyboardModifiers modifiers, const QString &text)
{
    if (const std::optional<Binding> row = binding(key, modifiers)) {
        if (!consumes(*row))
            return false;
        run(*row);
        return true;
    }
    if (const auto command = m_commands ? m_commands->match(key, modifiers) : std::nullopt) {
        if (!command->command->isEnabled() || !command->command->invoke)
            return false;
        command->command->invoke({command->extending});
        return true;
    }
    if (!typesName(modifiers, text))
        return false;
    jumpToName(text);
    return true;
}

bool KeyHandler::typesName(Qt::KeyboardModifiers modifiers, const QString &text)
{
    if (modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))
        return false;
    return !text.isEmpty() &&
           std::all_of(text.begin(), text.end(), [](QChar c) { return c.isPrint() && !c.isSpace(); });
}

void KeyHandler::jumpToName(const QString &text)
{
    // Typing on after a pause starts a new name, as in the item views of the desktop.
    if (!m_typedAt.isValid() || m_typedAt.elapsed() > QApplication::keyboardInputInterval())
        m_typed.clear();
    m_typedAt.start();
    const QString wanted = m_typed + text;
    PaneModel &active = m_model.active();
    const int count = active.visibleCount();
    for (int row = 0; row < count; ++row) {
        const FileEntry &entry = active.visibleAt(row);
        if (displayName(entry.url()).startsWith(wanted, Qt::CaseInsensitive)) {
            m_typed = wanted;
            active.setCursor(entry.id());
            return;
        }
    }
    // A letter that matches nothing is dropped, so one slip does not lose the name typed so far.
}

void KeyHandler::run(const Binding &binding)
{
    PaneModel &active = m_model.active();
    switch (binding.action) {
    case Action::functionKey:
        m_model.perform(binding.functionNumber);
        break;
    case Action::clipboardCopy:
        m_model.clipboardCopy();
        break;
    case Action::clipboardPaste:
        m_model.clipboardPaste();
        break;
    case Action::newTab:
        active.newTab();
        break;
    case Action::closeTab:
        active.closeTab();
        break;
    case Action::search:
        m_model.openSearch();
        break;
    case Action::info:
        m_model.openInfo();
        break;
    case Action::refresh:
        m_model.perform(9);
        break;
    case Action::selectAll:
        selectAll();
        break;
    case Action::toggleHidden:
        active.setShowHidden(!active.showHidden());
        break;
    case Action::ignoredPeriod:
        break;
    case Action::open:
        openCurrent();
        break;
    case Action::switchPane:
        m_model.setActiveLeft(!m_model.activeLeft());
        break;
    case Action::tagAndAdvance:
        tagAndCount();
        break;
    case Action::parentFolder:
        active.goUp();
        break;
    case Action::cursorDown:
        active.moveCursor(1, binding.extending);
        break;
    case Action::cursorUp:
        active.moveCursor(-1, binding.extending);
        break;
    }
}

// Space tags as ever; on a folder it also counts the folder's size. The row
// is the one toggleTagAndAdvance tags: the cursor's, else the first.
void KeyHandler::tagAndCount()
{
    PaneModel &active = m_model.active();
    std::optional<std::filesystem::path> folder;
    if (active.visibleCount() > 0) {
        const std::optional<int> row =
            active.cursor() ? active.visibleIndexOf(*active.cursor()) : std::nullopt;
        if (const FileEntry &entry = active.visibleAt(row.value_or(0)); entry.directory)
            folder = entry.url();
    }
    active.toggleTagAndAdvance();
    if (folder)
        active.folderSizes().count({*folder});
}

void KeyHandler::selectAll()
{
    PaneModel &active = m_model.active();
    std::set<std::filesystem::path> all;
    const int count = active.visibleCount();
    for (int row = 0; row < count; ++row)
        all.insert(active.visibleAt(row).id());
    active.setSelection(std::move(all));
    active.setCursor(count == 0 ? std::nullopt : std::optional(active.visibleAt(0).id()));
}

void KeyHandler::openCurrent()
{
    PaneModel &active = m_model.active();
    const FileEntry *chosen = nullptr;
    if (const auto &cursor = active.cursor()) {
        if (const auto index = active.visibleIndexOf(*cursor))
            chosen = &active.visibleAt(*index);
    }
    for (int row = 0; !chosen && !active.selection().empty() && row < active.visibleCount(); ++row) {
        if (active.isTagged(active.visibleAt(row).id()))
            chosen = &active.visibleAt(row);
    }
    if (chosen) {
        const FileEntry entry = *chosen; // open() may re-list and invalidate `visible`
        m_model.open(entry);
    }
}

bool KeyHandler::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::KeyPress && type != QEvent::ShortcutOverride)
        return false;
    // A key reaches the window object first and then its focus widget; deciding
    // on widgets only runs each key once.
    if (!watched->isWidgetType() || !m_gate(watched))
        return false;
    auto *key = static_cast<QKeyEvent *>(event);
    // With Ctrl, Alt or Meta a key of a non-Latin layout means the Latin key at
    // its place; typed alone it still types its own letter.
    int pressed = key->key();
    if (key->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))
        pressed = latinKeyAt(pressed, key->nativeScanCode()).value_or(pressed);
    if (inNavigatingPanel(watched)) {
        const std::optional<Binding> row = binding(pressed, key->modifiers());
        if (row ? isNavigation(row->action) : !(key->modifiers() & Qt::ControlModifier))
            return false;
    }
    if (type == QEvent::ShortcutOverride) {
        // Claim keys the table consumes so that no menu shortcut takes them first.
        if (!wouldConsume(pressed, key->modifiers(), key->text()))
            return false;
        key->accept();
        return true;
    }
    return handle(pressed, key->modifiers(), key->text());
}

} // namespace quillorn
