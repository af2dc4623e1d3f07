#pragma once

#include "model/commandertheme.h"

#include <QPalette>
#include <QString>

namespace quillorn {

// The widget palette of a theme: its window, surfaces and highlights, with the
// theme's readable text colours. Widgets without a colour of their own take it.
QPalette themePalette(CommanderTheme theme);

// The application's style sheet for what opens in windows of its own and has
// no theme otherwise: alerts and prompts, menus, tooltips, drop-down lists,
// and the scroll bars everywhere.
QString themeStyleSheet(CommanderTheme theme);

} // namespace quillorn
