#include "platform/posix/writeback.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace quillorn {
namespace {

// statfs f_type of FUSE and of file systems whose data lives on another machine.
constexpr std::array<std::uint32_t, 17> kPerFileMagics = {
    0x65735546, // FUSE (fuseblk too: ntfs-3g and exfat-fuse buffer in their daemon)
    0x6969,     // NFS
    0x517B,     // SMB
    0xFF534D42, // CIFS
    0xFE534D42, // SMB2/SMB3
    0x5346414F, // AFS
    0x6B414653, // kAFS
    0x73757245, // Coda
    0x564C,     // NCP
    0x01021997, // 9P
    0x00C36400, // Ceph
    0x0BD00BD0, // Lustre
    0x47504653, // GPFS
    0x20030528, // OrangeFS
    0x786F4256, // VirtualBox shared folders
    0x19830326, // BeeGFS
    0x013111A8, // IBRIX
};

bool syncfsReportsErrors()
{
    static const bool reports = [] {
        utsname system{};
        int major = 0, minor = 0;
        if (::uname(&system) != 0 || std::sscanf(system.release, "%d.%d", &major, &minor) != 2)
            return false;
        return major > 5 || (major == 5 && minor >= 8);
    }();
    return reports;
}

} // namespace

bool volumeFlushCoversFiles(int folderDescriptor)
{
    struct statfs volume {};
    if (!syncfsReportsErrors() || ::fstatfs(folderDescriptor, &volume) != 0)
        return false;
    const auto type = static_cast<std::uint32_t>(volume.f_type);
    return std::find(kPerFileMagics.begin(), kPerFileMagics.end(), type) == kPerFileMagics.end();
}

std::uint64_t pendingWriteBack()
{
    std::FILE *meminfo = std::fopen("/proc/meminfo", "re");
    if (!meminfo)
        return 0;
    std::uint64_t total = 0;
    char line[128];
    while (std::fgets(line, sizeof line, meminfo)) {
        unsigned long long kib = 0;
        // "Dirty:" waits to be written, "Writeback:" is being written; not "WritebackTmp:" (FUSE's own).
        if (std::sscanf(line, "Dirty: %llu kB", &kib) == 1 ||
            std::sscanf(line, "Writeback: %llu kB", &kib) == 1)
            total += kib * 1024;
    }
    std::fclose(meminfo);
    return total;
}

namespace {

int syncRange(int fileDescriptor, off_t offset, off_t length, unsigned flags)
{
    while (::sync_file_range(fileDescriptor, offset, length, flags) != 0) {
        if (errno == EINTR)
            continue;
        // Pipes and some file systems (older FUSE) do not take it: the flush later does it all.
        return errno == ESPIPE || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP ? 0 : errno;
    }
    return 0;
}

} // namespace

int startWriteBack(int fileDescriptor, off_t offset, off_t length)
{
    return syncRange(fileDescriptor, offset, length, SYNC_FILE_RANGE_WRITE);
}

int awaitWriteBack(int fileDescriptor, off_t offset, off_t length)
{
    return syncRange(fileDescriptor, offset, length,
                     SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
}

} // namespace quillorn
