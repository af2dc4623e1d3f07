#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>

class QObject;

namespace quillorn {

// The twelve colour themes, in the order the theme picker lists them. The raw
// value is both the persisted form ("appearance.theme") and the name shown.
enum class CommanderTheme {
    classicNavy,
    midnight,
    cappuccino,
    graphiteOrange,
    graphiteGreen,
    graphiteSky,
    deepOcean,
    aubergine,
    forest,
    slateRose,
    arctic,
    solarized,
};

inline constexpr std::array<CommanderTheme, 12> allCommanderThemes{
    CommanderTheme::classicNavy,    CommanderTheme::midnight,      CommanderTheme::cappuccino,
    CommanderTheme::graphiteOrange, CommanderTheme::graphiteGreen, CommanderTheme::graphiteSky,
    CommanderTheme::deepOcean,      CommanderTheme::aubergine,     CommanderTheme::forest,
    CommanderTheme::slateRose,      CommanderTheme::arctic,        CommanderTheme::solarized,
};

QString rawValue(CommanderTheme theme);

// Exact, case-sensitive match of a raw value; anything else is no theme.
std::optional<CommanderTheme> commanderThemeFromRawValue(QStringView text);

// Carries the chosen theme down an object tree, the way a view environment
// would: a view asks for the theme of its nearest ancestor that was given one,
// and a view nobody gave a theme gets the default.
struct CommanderThemeKey {
    static constexpr CommanderTheme defaultValue = CommanderTheme::classicNavy;

    static void set(QObject *object, CommanderTheme theme);
    static CommanderTheme value(const QObject *object);
};

} // namespace quillorn
