#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace quillorn {

// The user's XDG base directory folders (freedesktop.org): the variable when
// it holds an absolute path, else the default below the home folder ($HOME, else
// the account's home), else /tmp as a last resort.
std::filesystem::path dataHome();   // $XDG_DATA_HOME or ~/.local/share: the log, the Trash
std::filesystem::path stateHome();  // $XDG_STATE_HOME or ~/.local/state: the staging journal
std::filesystem::path configHome(); // $XDG_CONFIG_HOME or ~/.config: the desktop's user-dirs.dirs

// The folder the desktop keeps for `name` ("DOWNLOAD" for XDG_DOWNLOAD_DIR), as
// xdg-user-dirs records it in user-dirs.dirs under configHome(), named in the
// user's language ("$HOME/Загрузки"). `home` stands for $HOME there. Nothing
// when the file or the line is missing or not written the way that program
// writes it; the folder itself need not exist.
std::optional<std::filesystem::path> desktopUserFolder(std::string_view name,
                                                       const std::filesystem::path &home);

// Where the desktop puts downloads: the recorded folder, else ~/Downloads, the
// first that is a folder; else `home`, so a pane starting there always lists.
std::filesystem::path downloadsFolder(const std::filesystem::path &home);

} // namespace quillorn
