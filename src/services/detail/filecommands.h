#pragma once

#include "operations/fileoperations.h"

#include <filesystem>
#include <string>

namespace quillorn::detail {

// The bodies of the main window's file-system commands. They run as queue jobs
// on a background thread and get only values; their errors become the queue
// row's "Failed: " text.

// Gives the item a new name in its own folder. Fails with the engine's naming
// message for an invalid name or a name already taken (its own unchanged name too).
void renameItem(const std::filesystem::path &item, const std::string &name);

// Creates one folder (no intermediate folders, default attributes).
void createFolder(const std::string &name, const std::filesystem::path &folder);

} // namespace quillorn::detail
