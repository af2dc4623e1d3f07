#pragma once

#include <filesystem>

namespace quillorn::detail {

// The path as the file system spells it: links and ".." resolved, and each
// component replaced by the name its folder lists for it when the volume found
// it under another spelling (a case-insensitive volume answers "SUB/NOTES.TXT"
// for "Sub/Notes.txt"). Two paths of one item then compare equal even where
// inode numbers cannot tell (FUSE file systems without stable ones). Components
// that cannot be listed are kept as given. Only worth its listings when two paths
// are already suspected of naming one item.
std::filesystem::path listedSpelling(const std::filesystem::path &path);

} // namespace quillorn::detail
