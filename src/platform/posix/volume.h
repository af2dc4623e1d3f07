#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace quillorn {

// The device the item itself lives on (lstat, a link is not followed); empty when
// it cannot be examined.
std::optional<std::uint64_t> volumeIdentifier(const std::filesystem::path &item);

// False for file systems whose data lives on another machine (NFS, SMB, AFS, 9P,
// Ceph, and FUSE daemons such as sshfs, rclone or s3fs), where trash folders are
// not created and renames may be slow or partial. Block-backed FUSE (fuseblk:
// ntfs-3g, exfat-fuse) and FUSE over local folders are local; a FUSE volume is
// told by the type and source of its mount in /proc/self/mountinfo.
// Throws std::system_error (generic category, errno) when statfs fails.
bool volumeIsLocal(const std::filesystem::path &item);

// Mount points a user would want to jump to: the root, home, and mounted disks or
// shares; kernel and container plumbing (proc, sysfs, cgroups, overlays of
// snaps...) is left out. Sorted, without duplicates.
std::vector<std::filesystem::path> mountedVolumes();

} // namespace quillorn
