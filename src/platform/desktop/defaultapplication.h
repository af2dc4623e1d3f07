#pragma once

#include <filesystem>
#include <functional>

namespace quillorn {

// Hands a file to the desktop to open in its default application. The URL
// carries the path's bytes, so names that are not valid UTF-8 open too.
// xdg-open runs without the interface thread waiting for it; its exit status
// tells whether an application took the file (it starts the application and
// returns). Without xdg-open the toolkit's own launcher is asked. `done`
// (optional) learns the outcome on the interface thread.
void openWithDefaultApplication(const std::filesystem::path &file,
                                std::function<void(bool opened)> done = {});

} // namespace quillorn
