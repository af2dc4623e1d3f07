#include "app/commandtable.h"

#include <QKeySequence>
#include <QStringList>
#include <algorithm>

namespace quillorn {

namespace {

constexpr Qt::KeyboardModifiers chordModifiers =
    Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier;

// "+", "-" and "*" need Shift on some layouts and not on others, and come from
// the keypad too: for such keys Shift says nothing.
bool shiftIsLayout(int key)
{
    const bool printable = key >= 0x21 && key <= 0x7e;
    const bool letterOrDigit = (key >= 'A' && key <= 'Z') || (key >= '0' && key <= '9');
    return printable && !letterOrDigit;
}

} // namespace

QString Command::shownKey() const
{
    if (!keyText.isEmpty())
        return keyText;
    if (keys.isEmpty())
        return {};
    return QKeySequence(keys.front()).toString(QKeySequence::NativeText);
}

QString Command::shownText() const
{
    const QString now = currentText ? currentText() : QString();
    return now.isEmpty() ? text : now;
}

QString Command::menuLabel() const
{
    const QString now = currentText ? currentText() : QString();
    return !now.isEmpty() ? now : menuText.isEmpty() ? text : menuText;
}

CommandTable::CommandTable(std::vector<Command> commands) : m_commands(std::move(commands))
{
}

const Command *CommandTable::find(const QString &id) const
{
    const auto found = std::find_if(m_commands.begin(), m_commands.end(),
                                    [&](const Command &command) { return command.id == id; });
    return found == m_commands.end() ? nullptr : &*found;
}

std::optional<CommandTable::Match> CommandTable::match(int key, Qt::KeyboardModifiers modifiers) const
{
    const Qt::KeyboardModifiers held = modifiers & chordModifiers;
    for (const Command &command : m_commands) {
        if (command.menuShortcut)
            continue;
        for (const QKeyCombination row : command.keys) {
            if (row.key() != key)
                continue;
            Qt::KeyboardModifiers wanted = row.keyboardModifiers() & chordModifiers;
            Qt::KeyboardModifiers pressed = held;
            if (shiftIsLayout(key)) {
                wanted &= ~Qt::ShiftModifier;
                pressed &= ~Qt::ShiftModifier;
            }
            if (pressed == wanted)
                return Match{&command, false};
            if (command.shiftExtends && pressed == (wanted | Qt::ShiftModifier))
                return Match{&command, true};
        }
    }
    return std::nullopt;
}

bool CommandTable::run(const QString &id, Command::Invocation invocation) const
{
    const Command *command = find(id);
    if (!command || !command->invoke || !command->isEnabled())
        return false;
    command->invoke(invocation);
    return true;
}

QString CommandTable::keyList() const
{
    QStringList lines, functionKeys;
    for (const Command &command : m_commands)
        if (command.functionKey > 0)
            functionKeys << command.shownKey() + QLatin1Char(' ') + command.text;
    if (!functionKeys.isEmpty())
        lines << functionKeys.join(QStringLiteral(" • "));
    for (const Command &command : m_commands) {
        if (command.functionKey > 0)
            continue;
        const QString key = command.shownKey();
        const QString now = command.currentText ? command.currentText() : QString();
        if (!key.isEmpty())
            lines << key + QStringLiteral(": ") +
                         (!now.isEmpty()           ? now
                          : command.help.isEmpty() ? command.text
                                                   : command.help);
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace quillorn
