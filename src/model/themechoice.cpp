#include "model/themechoice.h"

#include "platform/core/preferences.h"

#include <QtGlobal>

namespace quillorn {

CommanderTheme chooseCommanderTheme(const std::optional<QString> &environmentValue,
                                    const std::optional<QString> &storedValue)
{
    if (environmentValue)
        if (auto theme = commanderThemeFromRawValue(*environmentValue))
            return *theme;
    if (storedValue)
        if (auto theme = commanderThemeFromRawValue(*storedValue))
            return *theme;
    return allCommanderThemes.front();
}

CommanderTheme chooseCommanderTheme(const Preferences &preferences)
{
    std::optional<QString> environmentValue;
    if (qEnvironmentVariableIsSet(kPreviewThemeVariable))
        environmentValue = qEnvironmentVariable(kPreviewThemeVariable);
    std::optional<QString> storedValue;
    const QString key = QString::fromLatin1(kThemePreferenceKey);
    if (preferences.contains(key))
        storedValue = preferences.text(key);
    return chooseCommanderTheme(environmentValue, storedValue);
}

} // namespace quillorn
