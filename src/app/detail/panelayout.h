#pragma once

#include "model/commanderthemecolours.h"

#include <QColor>
#include <QFont>

namespace quillorn::detail {

// Row and header geometry shared by the column headers and the row painter, so
// that the headers stay over their columns.
inline constexpr int kPartSpacing = 8; // between the parts of a row
inline constexpr int kIconWidth = 18;
inline constexpr int kSizeWidth = 84; // "≥ 999.9 MB…" while a folder is counted
inline constexpr int kModifiedWidth = 100;
// Each column ends with the spacing that follows its part.
inline constexpr int kSizeColumnWidth = kSizeWidth + kPartSpacing;
inline constexpr int kModifiedColumnWidth = kModifiedWidth + kPartSpacing;
inline constexpr int kMinimumPaneWidth = 420;
// Rows a file list shows however short the window is.
inline constexpr int kMinimumListedRows = 5;

// Text colours of a theme, readable on each of its surfaces.
inline QColor primaryTextColour(const CommanderThemeColours &palette)
{
    return textColours(palette).primary;
}
inline QColor secondaryTextColour(const CommanderThemeColours &palette)
{
    return textColours(palette).secondary;
}
inline QColor disabledTextColour(const CommanderThemeColours &palette)
{
    return textColours(palette).disabled;
}

// 12-point monospaced text of rows and the path field.
QFont monospacedFont(int pixelSize = 12);

} // namespace quillorn::detail
