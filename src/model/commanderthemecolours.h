#pragma once

#include "model/commandertheme.h"

#include <QString>

#include <array>
#include <cstdint>

namespace quillorn {

// An opaque sRGB colour of three 8-bit channels. The model stays free of any GUI
// library; where a view draws, the value converts to the toolkit's colour type.
struct ThemeColour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    // "#rrggbb", as style sheets take it.
    QString name() const { return QString::asprintf("#%02x%02x%02x", red, green, blue); }

    template <typename Colour>
    requires requires { Colour(int(), int(), int()); }
    operator Colour() const { return Colour(int(red), int(green), int(blue)); }

    friend bool operator==(const ThemeColour &, const ThemeColour &) = default;
};

// A theme's nine colour roles. Every colour is opaque sRGB; the reduced
// opacities of the cursor row, separators and outlines are applied by the views.
struct CommanderThemeColours {
    ThemeColour window;       // main window and tool sheets
    ThemeColour pane;         // file pane background
    ThemeColour bar;          // bars
    ThemeColour row;          // even list rows
    ThemeColour alternateRow; // odd list rows
    ThemeColour button;       // button surfaces
    ThemeColour selection;    // tagged rows, cursor row, current tab
    ThemeColour accent;       // highlights
    ThemeColour border;       // inactive outline, row separators

    friend bool operator==(const CommanderThemeColours &, const CommanderThemeColours &) = default;
};

// Built anew on every call from the fixed palette table.
CommanderThemeColours colours(CommanderTheme theme);

// The contrast ratio of two opaque colours, from 1 (equal) to 21 (black on
// white), by the relative luminance of the web's accessibility guidelines.
double contrastRatio(ThemeColour first, ThemeColour second);
// `over` laid at `opacity` (0 to 1) on `under`.
ThemeColour blend(ThemeColour over, ThemeColour under, double opacity);

// Every surface the window draws text on: the window, pane, bar, both rows,
// buttons, the selection and the cursor row (the selection at 45% over a row).
std::array<ThemeColour, 9> textSurfaces(const CommanderThemeColours &palette);

// The text colours of a palette. Primary and secondary text read at a contrast
// of at least 4.5:1 on every text surface, the secondary one (which keeps the
// tint of the palette's border) on all but the full selection colour, where
// views draw primary text. Disabled text is meant to be faint.
struct ThemeTextColours {
    ThemeColour primary;
    ThemeColour secondary;
    ThemeColour disabled;
};
ThemeTextColours textColours(const CommanderThemeColours &palette);

// The frame around the cursor row: the accent in the active pane, the border's
// tint in the other. A frame is a graphical object, so it must stand out at
// 3:1 from every colour it can touch: both row colours, a tagged row and the
// cursor row's own fill. Where the theme's colour does not, it is moved towards
// white or black just as far as needed; the palette itself stays as it is.
ThemeColour cursorFrameColour(const CommanderThemeColours &palette, bool activePane);

} // namespace quillorn
