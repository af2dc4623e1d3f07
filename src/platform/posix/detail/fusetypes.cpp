#include "platform/posix/detail/fusetypes.h"

#include <set>
#include <string_view>

namespace quillorn::detail {
namespace {

// Daemons that reach over a network: ssh, cloud and object stores, FTP, WebDAV,
// SMB, the desktop's remote locations.
const std::set<std::string_view> kNetworkDaemons = {
    "sshfs",         "rclone",     "s3fs",      "gvfsd-fuse", "curlftpfs", "davfs",
    "davfs2",        "smbnetfs",   "gcsfuse",   "goofys",     "blobfuse",  "blobfuse2",
    "mountpoint-s3", "juicefs",    "seaweedfs", "httpfs",     "httpfs2",   "wdfs",
    "ftpfs",         "lftpfs",     "afpfs",     "afpfs-ng",   "onedriver", "google-drive-ocamlfuse",
    "kio-fuse",      "ipfs",       "glusterfs", "moosefs",    "lizardfs",  "cephfs",
    "ceph-fuse",     "sshfs-fuse", "dropbox",   "onedrive",
};

// Daemons over local disks, images or folders whose mount-table source is only a
// label ("fusefat", "encfs", "1:2"), so the source cannot tell.
const std::set<std::string_view> kLocalDaemons = {
    "ntfs-3g",  "ntfs",       "lowntfs-3g",   "exfat",        "exfat-fuse", "fuse2fs",   "fusefat",
    "mergerfs", "unionfs",    "unionfs-fuse", "mhddfs",       "encfs",      "gocryptfs", "cryfs",
    "securefs", "squashfuse", "fuse-zip",     "archivemount", "bindfs",     "portal",
};

} // namespace

FuseData fuseData(const std::string &fsType)
{
    // The kernel gives this type only to daemons that opened a block device for it
    // (ntfs-3g and exfat-fuse as root): a disk in the machine or plugged into it.
    if (fsType == "fuseblk")
        return FuseData::local;
    constexpr std::string_view prefix = "fuse.";
    if (fsType.rfind(prefix, 0) != 0)
        return FuseData::unknown; // "fuse" without a subtype
    const std::string_view daemon = std::string_view(fsType).substr(prefix.size());
    if (kNetworkDaemons.count(daemon) > 0)
        return FuseData::network;
    if (kLocalDaemons.count(daemon) > 0)
        return FuseData::local;
    return FuseData::unknown;
}

} // namespace quillorn::detail
