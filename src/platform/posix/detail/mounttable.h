#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillorn::detail {

// One line of /proc/self/mountinfo, with the octal escapes of the mount point
// (\040 for a space, \012 for a line feed, ...) undone so it is the real path.
struct MountEntry {
    std::uint64_t mountId = 0; // what statx reports as stx_mnt_id
    std::uint64_t device = 0;  // st_dev of the items on it
    std::filesystem::path mountPoint;
    std::string fsType; // "ext4", "fuse.sshfs", ...
    std::string source; // "/dev/sda1", "server:/export", ...
};

// One line of the table; empty when it is not one.
std::optional<MountEntry> parseMountInfoLine(const std::string &line);

// Every line of a table in that format that is one.
std::vector<MountEntry> parseMountTable(const std::string &text);

// The text of /proc/self/mountinfo; empty when it cannot be read.
std::string readMountInfo();

// The mounts this process sees, in the kernel's order (a later mount on the same
// point hides an earlier one). Empty when the table cannot be read.
std::vector<MountEntry> readMountTable();

// The mount point that holds path: the longest mount point that is path itself or
// one of its ancestors. path must be absolute and free of symbolic links.
std::optional<std::filesystem::path> mountPointOf(const std::filesystem::path &path,
                                                  const std::vector<MountEntry> &mounts);

} // namespace quillorn::detail
