#include "platform/posix/volume.h"

#include "platform/posix/detail/fusetypes.h"
#include "platform/posix/detail/mounttable.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/sharename.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <set>
#include <string_view>

#include <dirent.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

namespace quillorn {
namespace {

// statfs f_type values of file systems whose data lives on another machine
// (linux/magic.h and the file systems' own headers).
constexpr std::array<unsigned long, 16> kRemoteMagics = {
    0x6969,     // NFS
    0x517B,     // SMB (old smbfs)
    0xFF534D42, // CIFS
    0xFE534D42, // SMB2/SMB3
    0x5346414F, // AFS (OpenAFS)
    0x6B414653, // kAFS
    0x73757245, // Coda
    0x564C,     // NCP
    0x01021997, // 9P (v9fs)
    0x00C36400, // Ceph
    0x0BD00BD0, // Lustre
    0x47504653, // GPFS
    0x20030528, // OrangeFS
    0x786F4256, // VirtualBox shared folders
    0x19830326, // FhGFS / BeeGFS
    0x013111A8, // IBRIX
};

// FUSE: the mount table tells a USB disk through ntfs-3g from an ssh share.
constexpr unsigned long kFuseMagic = 0x65735546;

// Kernel plumbing a user never browses to.
const std::set<std::string_view> kPseudoTypes = {
    "proc",     "sysfs",   "cgroup",      "cgroup2",  "devtmpfs", "devpts",      "mqueue",
    "debugfs",  "tracefs", "securityfs",  "pstore",   "bpf",      "autofs",      "hugetlbfs",
    "configfs", "fusectl", "binfmt_misc", "efivarfs", "nsfs",     "rpc_pipefs",  "selinuxfs",
    "tmpfs",    "ramfs",   "overlay",     "squashfs", "nfsd",     "fuse.portal", "fuse.lxcfs",
};

// Where removable disks and hand-made mounts appear; any real file system there is listed.
constexpr std::array<std::string_view, 3> kUserPlaces = {"/media", "/run/media", "/mnt"};

// System folders whose mounts are part of the installation, not places to visit.
constexpr std::array<std::string_view, 9> kSystemPlaces = {"/proc", "/sys", "/dev", "/run", "/boot",
                                                           "/snap", "/var", "/usr", "/etc"};

// The names in a folder of the desktop's share daemons, which answer these top
// folders from their own memory. Only names: examining an entry could reach the
// server behind it. Nothing when it cannot be read (a daemon that died leaves
// ENOTCONN; another user's mount EACCES).
std::vector<std::string> folderNames(const std::filesystem::path &folder)
{
    std::vector<std::string> names;
    DIR *stream = ::opendir(folder.c_str());
    if (!stream)
        return names;
    while (const dirent *entry = ::readdir(stream)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    ::closedir(stream);
    return names;
}

bool isBelow(const std::filesystem::path &path, std::string_view folder)
{
    const std::string &text = path.native();
    return text.size() > folder.size() && text.compare(0, folder.size(), folder) == 0 &&
           text[folder.size()] == '/';
}

bool isNetworkType(const std::string &type)
{
    static const std::set<std::string_view> network = {"nfs",  "nfs4",  "cifs", "smb3", "smbfs",    "afs",
                                                       "coda", "ncpfs", "9p",   "ceph", "glusterfs"};
    return network.count(type) > 0 || type.rfind("fuse.", 0) == 0 || type == "fuse" || type == "fuseblk";
}

bool userVisible(const detail::MountEntry &mount)
{
    if (mount.mountPoint == "/")
        return true;
    if (kPseudoTypes.count(mount.fsType) > 0)
        return false;
    const auto below = [&](std::string_view folder) { return isBelow(mount.mountPoint, folder); };
    if (std::any_of(kUserPlaces.begin(), kUserPlaces.end(), below))
        return true;
    if (std::any_of(kSystemPlaces.begin(), kSystemPlaces.end(), below))
        return false;
    return mount.source.rfind("/dev/", 0) == 0 || isNetworkType(mount.fsType);
}

// The mount-table entry of the mount that holds examined (links followed).
std::optional<detail::MountEntry> mountHolding(const std::filesystem::path &examined)
{
    struct statx info {};
    if (::statx(AT_FDCWD, examined.c_str(), AT_NO_AUTOMOUNT, STATX_MNT_ID, &info) != 0)
        return std::nullopt;
    const std::vector<detail::MountEntry> mounts = detail::readMountTable();
    if (info.stx_mask & STATX_MNT_ID) {
        for (const detail::MountEntry &mount : mounts) {
            if (mount.mountId == info.stx_mnt_id)
                return mount;
        }
    }
    // Kernels before 5.8: the last mount of the item's device, as a later mount
    // hides an earlier one (bind mounts of one device share its type anyway).
    const auto device = static_cast<std::uint64_t>(makedev(info.stx_dev_major, info.stx_dev_minor));
    std::optional<detail::MountEntry> found;
    for (const detail::MountEntry &mount : mounts) {
        if (mount.device == device)
            found = mount;
    }
    return found;
}

bool isLocal(const std::filesystem::path &item, int depth);

// A FUSE daemon the type does not identify is judged by what it serves: a block
// device, or a folder or image file on a local volume (bindfs, gocryptfs,
// fuse2fs on an image) is local; a host name, a remote's name or a bare label is
// taken for a network volume, which is what most such daemons are. The depth
// stops a chain of FUSE volumes over each other.
bool sourceIsLocal(const std::string &source, int depth)
{
    struct stat info {};
    if (source.empty() || source.front() != '/' || ::stat(source.c_str(), &info) != 0)
        return false;
    if (S_ISBLK(info.st_mode))
        return true;
    if (!S_ISDIR(info.st_mode) && !S_ISREG(info.st_mode))
        return false;
    try {
        return depth < 4 && isLocal(source, depth + 1);
    } catch (const std::system_error &) {
        return false;
    }
}

bool isLocal(const std::filesystem::path &item, int depth)
{
    // statfs follows links; a link (dangling ones included) lives where its folder does.
    struct stat own {};
    const bool link = ::lstat(item.c_str(), &own) == 0 && S_ISLNK(own.st_mode);
    const std::filesystem::path examined = !link ? item : item.has_parent_path() ? item.parent_path() : ".";
    struct statfs info {};
    if (::statfs(examined.c_str(), &info) != 0)
        throwPosixError(item);
    // f_type is signed on some architectures; compare the 32-bit pattern.
    const auto type = static_cast<unsigned long>(static_cast<std::uint32_t>(info.f_type));
    if (std::find(kRemoteMagics.begin(), kRemoteMagics.end(), type) != kRemoteMagics.end())
        return false;
    if (type != kFuseMagic)
        return true;
    const std::optional<detail::MountEntry> mount = mountHolding(examined);
    if (!mount)
        return false;
    switch (detail::fuseData(mount->fsType)) {
    case detail::FuseData::local:
        return true;
    case detail::FuseData::network:
        return false;
    case detail::FuseData::unknown:
        break;
    }
    return sourceIsLocal(mount->source, depth);
}

} // namespace

std::optional<std::uint64_t> volumeIdentifier(const std::filesystem::path &item)
{
    struct stat info {};
    if (::lstat(item.c_str(), &info) != 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(info.st_dev);
}

std::optional<std::int64_t> availableBytes(const std::filesystem::path &item)
{
    struct statvfs volume {};
    if (::statvfs(item.c_str(), &volume) != 0)
        return std::nullopt;
    return static_cast<std::int64_t>(volume.f_bavail) * static_cast<std::int64_t>(volume.f_frsize);
}

std::optional<VolumeMark> volumeMark(const std::filesystem::path &folder)
{
    struct stat info {};
    struct statfs volume {};
    if (!folder.is_absolute() || ::stat(folder.c_str(), &info) != 0 || ::statfs(folder.c_str(), &volume) != 0)
        return {};
    std::filesystem::path top = folder.lexically_normal();
    if (!top.has_filename() && top.has_relative_path())
        top = top.parent_path();
    // The highest ancestor still on the same device is where the volume is mounted.
    while (top.has_relative_path()) {
        const std::filesystem::path up = top.parent_path();
        struct stat above {};
        if (::stat(up.c_str(), &above) != 0 || above.st_dev != info.st_dev)
            break;
        top = up;
    }
    constexpr unsigned long tmpfsMagic = 0x01021994, ramfsMagic = 0x858458F6;
    std::uint64_t id = 0;
    if (static_cast<unsigned long>(volume.f_type) != tmpfsMagic &&
        static_cast<unsigned long>(volume.f_type) != ramfsMagic) {
        static_assert(sizeof volume.f_fsid == sizeof id);
        std::memcpy(&id, &volume.f_fsid, sizeof id);
    }
    return VolumeMark{top, id};
}

bool volumeIsMounted(const VolumeMark &mark)
{
    const std::optional<VolumeMark> now = volumeMark(mark.mountPoint);
    return now && *now == mark;
}

bool volumeIsLocal(const std::filesystem::path &item)
{
    return isLocal(item, 0);
}

VolumeNaming volumeNaming(const std::filesystem::path &folder)
{
    struct statfs info {};
    if (::statfs(folder.c_str(), &info) != 0)
        return {};
    constexpr unsigned long msdos = 0x4d44, exfat = 0x2011BAB0, ntfs = 0x5346544e, ntfs3 = 0x7366746e,
                            cifs = 0xFF534D42, smb2 = 0xFE534D42, smb = 0x517B;
    switch (static_cast<unsigned long>(static_cast<std::uint32_t>(info.f_type))) {
    case msdos:
    case exfat:
    case cifs:
    case smb2:
    case smb:
        return {true, true};
    case ntfs:
    case ntfs3:
        return {true, false};
    case kFuseMagic:
        break;
    default:
        return {};
    }
    const std::optional<detail::MountEntry> mount = mountHolding(folder);
    if (!mount)
        return {};
    const std::string &type = mount->fsType;
    const auto names = [&type](std::string_view part) { return type.find(part) != std::string::npos; };
    // ntfs-3g keeps letter case apart; the FAT family and SMB clients do not.
    if (names("fat") || names("smb") || names("cifs"))
        return {true, true};
    if (type == "fuseblk" || names("ntfs"))
        return {true, false};
    return {};
}

std::vector<MountedVolume> mountedVolumes()
{
    return mountedVolumes(detail::readMountInfo());
}

std::vector<MountedVolume> mountedVolumes(const std::string &mountInfo)
{
    std::map<std::filesystem::path, std::string> places;
    for (const detail::MountEntry &mount : detail::parseMountTable(mountInfo)) {
        // Each share is a folder of the daemon's one mount, which itself is plumbing.
        if (mount.fsType == "fuse.gvfsd-fuse") {
            for (const std::string &name : folderNames(mount.mountPoint))
                places.emplace(mount.mountPoint / name, gvfsShareName(name));
        } else if (mount.fsType == "fuse.kio-fuse") {
            for (const std::string &protocol : folderNames(mount.mountPoint))
                for (const std::string &origin : folderNames(mount.mountPoint / protocol))
                    places.emplace(mount.mountPoint / protocol / origin, kioFuseShareName(protocol, origin));
        } else if (userVisible(mount)) {
            places.emplace(mount.mountPoint, std::string());
        }
    }
    if (places.empty())
        places.emplace("/", std::string());
    std::vector<MountedVolume> volumes;
    for (auto &[path, label] : places)
        volumes.push_back({path, std::move(label)});
    return volumes;
}

} // namespace quillorn
