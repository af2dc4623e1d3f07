#pragma once

#include "model/commandertheme.h"

#include <QColor>

namespace quillorn {

// A theme's nine colour roles. Every colour is opaque sRGB; the reduced
// opacities of the cursor row, separators and outlines are applied by the views.
struct CommanderThemeColours {
    QColor window;       // main window and tool sheets
    QColor pane;         // file pane background
    QColor bar;          // bars
    QColor row;          // even list rows
    QColor alternateRow; // odd list rows
    QColor button;       // button surfaces
    QColor selection;    // tagged rows, cursor row, current tab
    QColor accent;       // highlights
    QColor border;       // inactive outline, row separators

    friend bool operator==(const CommanderThemeColours &, const CommanderThemeColours &) = default;
};

// Built anew on every call from the fixed palette table.
CommanderThemeColours colours(CommanderTheme theme);

} // namespace quillorn
