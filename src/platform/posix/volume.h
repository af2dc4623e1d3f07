#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillorn {

// The device the item itself lives on (lstat, a link is not followed); empty when
// it cannot be examined.
std::optional<std::uint64_t> volumeIdentifier(const std::filesystem::path &item);

// The bytes of the item's volume that an unprivileged user may still fill
// (statvfs f_bavail × f_frsize); empty when it cannot be examined.
std::optional<std::int64_t> availableBytes(const std::filesystem::path &item);

// Which volume a folder is on, in a form that outlives an unmount: the mount
// point it sits under and the file system's statfs id, which ext4, btrfs, XFS
// and most others derive from the volume itself rather than from the device
// number of the moment. On tmpfs and ramfs the id is 0, since nothing there
// outlives the mount: any such volume at the same point is as good as another.
struct VolumeMark {
    std::filesystem::path mountPoint;
    std::uint64_t fileSystemId = 0;
    bool operator==(const VolumeMark &) const = default;
};

// The mark of the volume an absolute folder is on; empty when the folder cannot
// be reached.
std::optional<VolumeMark> volumeMark(const std::filesystem::path &folder);

// True when the volume of mark is mounted where it was: its mount point is one
// again and carries the same file system.
bool volumeIsMounted(const VolumeMark &mark);

// False for file systems whose data lives on another machine (NFS, SMB, AFS, 9P,
// Ceph, and FUSE daemons such as sshfs, rclone or s3fs), where trash folders are
// not created and renames may be slow or partial. Block-backed FUSE (fuseblk:
// ntfs-3g, exfat-fuse) and FUSE over local folders are local; a FUSE volume is
// told by the type and source of its mount in /proc/self/mountinfo.
// Throws std::system_error (generic category, errno) when statfs fails.
bool volumeIsLocal(const std::filesystem::path &item);

// How a volume's file system treats names, beyond the "/" and NUL every one refuses.
struct VolumeNaming {
    // FAT, exFAT, NTFS and SMB shares refuse \ : * ? " < > | and control
    // characters, and drop or refuse a name's trailing dot or space.
    bool windowsCharacters = false;
    // FAT, exFAT and SMB shares: "Photo.JPG" and "photo.jpg" are one name.
    bool ignoresCase = false;
    bool operator==(const VolumeNaming &) const = default;
};

// The rules of the volume the folder is on, told by its file-system type (for
// FUSE, by the mount table: fuseblk is ntfs-3g or exfat-fuse). Plain POSIX
// rules when the folder cannot be examined.
VolumeNaming volumeNaming(const std::filesystem::path &folder);

// A place the locations menu offers.
struct MountedVolume {
    std::filesystem::path path;
    // The name of a share the desktop mounted ("public on nas"); empty for a
    // plain mount, which goes by its folder's name.
    std::string label;
    bool operator==(const MountedVolume &) const = default;
};

// Mount points a user would want to jump to: the root, home, and mounted disks or
// shares; kernel and container plumbing (proc, sysfs, cgroups, overlays of
// snaps...) is left out. The desktop's share folders are one place per share:
// each folder of a gvfsd-fuse mount, each server folder of a kio-fuse mount.
// Sorted by path, without duplicates.
std::vector<MountedVolume> mountedVolumes();
// The same from the text of a mount table in /proc/self/mountinfo's format; the
// share folders are still read from the file system.
std::vector<MountedVolume> mountedVolumes(const std::string &mountInfo);

} // namespace quillorn
