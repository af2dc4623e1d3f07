#pragma once

#include <string>

namespace quillorn::detail {

// Where a FUSE volume's data lives, as far as its mount-table type tells.
enum class FuseData {
    local,   // block-backed (fuseblk) or a daemon known to serve local disks or folders
    network, // a daemon known to reach another machine or a cloud store
    unknown, // the mount's source has to decide
};

// fsType is the mount table's type field: "fuseblk", "fuse", "fuse.sshfs", ...
FuseData fuseData(const std::string &fsType);

} // namespace quillorn::detail
