#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace quillorn {

// The facts of one item as the file system gives them without following a
// final symbolic link, with the readable names this platform uses for them.
struct ItemAttributes {
    mode_t type = 0;          // the S_IFMT bits
    unsigned permissions = 0; // permission, set-user-ID, set-group-ID and sticky bits
    std::int64_t size = 0;
    uid_t owner = 0;
    gid_t group = 0;
    std::int64_t modifiedSeconds = 0;

    bool isRegular() const;
    bool isDirectory() const;
    bool isSymlink() const;

    // Throws PosixError.
    static ItemAttributes read(const std::filesystem::path &item);

    // "regular file", "directory", "symbolic link", "fifo", "socket",
    // "character special file", "block special file", else "Unknown".
    static std::string typeName(mode_t type);
    // "2024-03-05 14:07:09 +0000": the time in UTC.
    static std::string utcDateText(std::int64_t seconds);
};

// The target text of a symbolic link, unresolved. Throws PosixError.
std::string symlinkTarget(const std::filesystem::path &link);

// Sets the whole permission word of the item (links are followed); throws PosixError.
void setPermissions(const std::filesystem::path &item, unsigned permissions);

} // namespace quillorn
