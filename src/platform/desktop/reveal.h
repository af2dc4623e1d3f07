#pragma once

#include "platform/desktop/fileurl.h"

#include <filesystem>
#include <functional>

namespace quillorn {

// How an item was shown to the user by revealItem().
enum class RevealRoute { fileManager, containingFolder, failed };

// Shows the item selected in the desktop's file browser through the
// org.freedesktop.FileManager1 D-Bus service; when no such service answers,
// opens the folder that holds the item instead. The D-Bus call is asynchronous,
// so the interface thread never waits for the file browser; `done` (optional)
// learns the route taken, on the interface thread.
void revealItem(const std::filesystem::path &item, std::function<void(RevealRoute)> done = {});

} // namespace quillorn
