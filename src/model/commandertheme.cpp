#include "model/commandertheme.h"

#include <QObject>
#include <QVariant>

namespace quillorn {

namespace {

constexpr const char *kThemeProperty = "quillornCommanderTheme";

} // namespace

QString rawValue(CommanderTheme theme)
{
    switch (theme) {
    case CommanderTheme::classicNavy:
        return QStringLiteral("Classic Navy");
    case CommanderTheme::midnight:
        return QStringLiteral("Midnight");
    case CommanderTheme::cappuccino:
        return QStringLiteral("Cappuccino");
    case CommanderTheme::graphiteOrange:
        return QStringLiteral("Graphite & Orange");
    case CommanderTheme::graphiteGreen:
        return QStringLiteral("Graphite & Green");
    case CommanderTheme::graphiteSky:
        return QStringLiteral("Graphite & Light Blue");
    case CommanderTheme::deepOcean:
        return QStringLiteral("Deep Ocean");
    case CommanderTheme::aubergine:
        return QStringLiteral("Aubergine");
    case CommanderTheme::forest:
        return QStringLiteral("Forest");
    case CommanderTheme::slateRose:
        return QStringLiteral("Slate & Rose");
    case CommanderTheme::arctic:
        return QStringLiteral("Arctic Night");
    case CommanderTheme::solarized:
        return QStringLiteral("Solarized Dark");
    }
    return QStringLiteral("Classic Navy");
}

std::optional<CommanderTheme> commanderThemeFromRawValue(QStringView text)
{
    for (CommanderTheme theme : allCommanderThemes)
        if (text.compare(rawValue(theme), Qt::CaseSensitive) == 0)
            return theme;
    return std::nullopt;
}

void CommanderThemeKey::set(QObject *object, CommanderTheme theme)
{
    object->setProperty(kThemeProperty, rawValue(theme));
}

CommanderTheme CommanderThemeKey::value(const QObject *object)
{
    for (const QObject *current = object; current; current = current->parent()) {
        const QVariant stored = current->property(kThemeProperty);
        if (stored.isValid())
            if (auto theme = commanderThemeFromRawValue(stored.toString()))
                return *theme;
    }
    return defaultValue;
}

} // namespace quillorn
