#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace quillorn::detail {

// A trash folder's "directorysizes" file: the sizes of the folders in its
// files/, so that a Trash of large trees can be shown without walking them
// each time. One line per folder, "SIZE MTIME NAME": the disk usage in bytes
// (as du -B1 counts it), the seconds of the modification time of the folder's
// .trashinfo, and its name in files/, percent-encoded. The info's time, not the
// folder's: a folder put back, changed deep inside and trashed again keeps its
// own time, but always gets a new info.
struct DirectorySize {
    std::int64_t size = 0;
    std::int64_t infoModified = 0;
    bool operator==(const DirectorySize &) const = default;
};
using DirectorySizes = std::map<std::string, DirectorySize>; // by name, bytes

// The cache's lines by name; lines that do not parse (or name a path) are left
// out. Empty when there is no cache or it cannot be read.
DirectorySizes readDirectorySizes(const std::filesystem::path &trash);

// Replaces the cache by a temporary file renamed over it, so that no reader
// ever meets half a file. Two writers at once lose one's changes, which the
// next reading of the Trash puts back. Throws PosixError.
void writeDirectorySizes(const std::filesystem::path &trash, const DirectorySizes &sizes);

// The bytes a tree takes on disk, as du -B1 counts them: the blocks of the
// folder and of every entry below it, a file with several links once. What
// cannot be read counts nothing. Nothing when stop was requested first.
std::optional<std::int64_t> diskUsage(const std::filesystem::path &folder, std::stop_token stop = {});

// The seconds of the modification time of the .trashinfo of files/NAME;
// nothing when it cannot be examined.
std::optional<std::int64_t> infoModified(const std::filesystem::path &trash, const std::string &name);

// The cache after files/NAME arrived as a folder: its line added (or renewed).
// After folders left files/: their lines dropped. Neither throws: a cache that
// cannot be written only makes the next reading slower.
void rememberDirectorySize(const std::filesystem::path &trash, const std::string &name) noexcept;
void forgetDirectorySizes(const std::filesystem::path &trash, const std::vector<std::string> &names) noexcept;

} // namespace quillorn::detail
