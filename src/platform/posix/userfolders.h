#pragma once

#include <filesystem>

namespace quillorn {

// The user's XDG base directory folders (freedesktop.org): the variable when
// it holds an absolute path, else the default below the home folder ($HOME, else
// the account's home), else /tmp as a last resort.
std::filesystem::path dataHome();  // $XDG_DATA_HOME or ~/.local/share: the log, the Trash
std::filesystem::path stateHome(); // $XDG_STATE_HOME or ~/.local/state: the staging journal

} // namespace quillorn
