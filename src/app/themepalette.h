#pragma once

#include "model/commandertheme.h"

#include <QPalette>

namespace quillorn {

// The widget palette of a theme: its window, surfaces and highlights, with the
// light text of a dark appearance. Widgets without a colour of their own take it.
QPalette themePalette(CommanderTheme theme);

} // namespace quillorn
