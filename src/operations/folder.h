#pragma once

#include "operations/detail/posixfile.h"

#include <filesystem>
#include <string>

namespace quillorn {

// An open folder and the path a user knows it by. Everything inside is reached
// relative to the descriptor, never by path again, so a folder swapped for a
// link while the engine works cannot lead it anywhere else. shown is for
// messages and the log only.
struct Folder {
    detail::FileDescriptor fd;
    std::filesystem::path shown;

    std::filesystem::path operator/(const std::string &name) const { return shown / name; }
};

} // namespace quillorn
