#pragma once

#include <filesystem>

namespace quillorn {

// Hands a file to the desktop to open in its default application (xdg-open
// through QDesktopServices). The URL carries the path's bytes, so names that
// are not valid UTF-8 open too. Whether the desktop managed is not reported.
void openWithDefaultApplication(const std::filesystem::path &file);

} // namespace quillorn
