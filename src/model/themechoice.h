#pragma once

#include "model/commandertheme.h"

#include <QString>
#include <optional>

namespace quillorn {

class Preferences;

// The preference the theme picker writes and the main window reads.
inline constexpr const char *kThemePreferenceKey = "appearance.theme";
// Overrides the stored theme when it holds a raw value (release screenshots).
inline constexpr const char *kPreviewThemeVariable = "QUILLORN_RELEASE_PREVIEW_THEME";

// The environment value wins when it names a theme, then the stored value when
// it names one, then the first theme. Values that name no theme are skipped.
CommanderTheme chooseCommanderTheme(const std::optional<QString> &environmentValue,
                                    const std::optional<QString> &storedValue);

// The same choice made from the process environment and the given store.
CommanderTheme chooseCommanderTheme(const Preferences &preferences);

} // namespace quillorn
