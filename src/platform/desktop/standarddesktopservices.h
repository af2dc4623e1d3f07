#pragma once

#include "platform/core/desktopservices.h"

class QWidget;

namespace quillorn {

// The real desktop for the application model: alerts and prompts modal over
// `window`, the system clipboard, the built-in quick look, the default
// applications, and QCoreApplication::quit for quitting.
DesktopServices standardDesktopServices(QWidget *window);

} // namespace quillorn
