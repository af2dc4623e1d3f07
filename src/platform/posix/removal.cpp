#include "platform/posix/removal.h"

#include "platform/posix/detail/mounttable.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <set>
#include <vector>

namespace fs = std::filesystem;

namespace quillorn {
namespace {

constexpr unsigned kWanted = STATX_TYPE | STATX_MODE | STATX_INO;
constexpr int kNoFollow = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;

std::string quoted(const fs::path &path)
{
    return "\u2018" + path.string() + "\u2019";
}

// statx(2) of parent/name without following a link; errno set when empty.
std::optional<struct statx> attributesAt(int parent, const char *name, int flags = kNoFollow)
{
    struct statx info {};
    if (::statx(parent, name, flags, kWanted, &info) != 0)
        return std::nullopt;
    return info;
}

dev_t deviceOf(const struct statx &info)
{
    return makedev(info.stx_dev_major, info.stx_dev_minor);
}

// Whether the kernel said the item is the root of a mount; empty on kernels
// older than 5.8, which do not tell.
std::optional<bool> mountRoot(const struct statx &info)
{
    if ((info.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0)
        return std::nullopt;
    return (info.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

// For kernels that do not flag mount roots: the mount points of the mount table,
// so that a bind mount of the same device is still recognised.
const std::set<fs::path> &mountPoints()
{
    static const std::set<fs::path> points = [] {
        std::set<fs::path> result;
        for (const detail::MountEntry &mount : detail::readMountTable())
            result.insert(mount.mountPoint);
        return result;
    }();
    return points;
}

// The item's real path, links in its folder resolved; empty when that fails.
fs::path realPath(const fs::path &item)
{
    const fs::path absolute = fs::absolute(item);
    char *resolved = ::realpath(absolute.parent_path().c_str(), nullptr);
    if (!resolved)
        return {};
    fs::path folder(resolved);
    std::free(resolved);
    return folder / absolute.filename();
}

bool foreignAt(const struct statx &info, dev_t device, const fs::path &real)
{
    if (deviceOf(info) != device)
        return true;
    if (const std::optional<bool> root = mountRoot(info))
        return *root;
    return !real.empty() && mountPoints().count(real) > 0;
}

// Every name in an open folder but "." and "..", read before anything is removed
// so that removal never disturbs the listing.
std::optional<std::vector<std::string>> namesIn(int folder)
{
    DIR *listing = ::fdopendir(::fcntl(folder, F_DUPFD_CLOEXEC, 0));
    if (!listing)
        return std::nullopt;
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    const int error = errno;
    ::closedir(listing);
    errno = error;
    if (error != 0)
        return std::nullopt;
    return names;
}

class TreeRemover {
public:
    TreeRemover(const fs::path &top, dev_t device, bool makeWritable)
        : m_top(top), m_device(device), m_makeWritable(makeWritable)
    {
    }

    // Removes parent/name (shown to the user as shown) and what it holds.
    void remove(int parent, const std::string &name, const fs::path &shown);
    // Throws for the first item left, if any.
    void report() const;

private:
    void removeFolder(int parent, const std::string &name, const fs::path &shown, const struct statx &info);
    FileDescriptor openFolder(int parent, const std::string &name, const struct statx &info) const;
    bool foreign(const struct statx &info, const fs::path &shown) const;
    void keep(const fs::path &shown, int error);

    fs::path m_top;
    dev_t m_device;
    bool m_makeWritable;
    std::optional<fs::path> m_left;
    int m_error = 0; // 0: the item left is a mount point
};

void TreeRemover::remove(int parent, const std::string &name, const fs::path &shown)
{
    const std::optional<struct statx> info = attributesAt(parent, name.c_str());
    if (!info) {
        if (errno != ENOENT)
            keep(shown, errno);
        return;
    }
    if (shown != m_top && foreign(*info, shown))
        return keep(shown, 0);
    if (S_ISDIR(info->stx_mode))
        return removeFolder(parent, name, shown, *info);
    if (::unlinkat(parent, name.c_str(), 0) != 0 && errno != ENOENT)
        keep(shown, errno);
}

void TreeRemover::removeFolder(int parent, const std::string &name, const fs::path &shown,
                               const struct statx &info)
{
    const FileDescriptor folder = openFolder(parent, name, info);
    if (!folder) {
        if (errno != ENOENT)
            keep(shown, errno);
        return;
    }
    // Checked again on what was opened: a volume may have been mounted in between.
    const std::optional<struct statx> opened = attributesAt(folder.get(), "", AT_EMPTY_PATH);
    if (!opened || opened->stx_ino != info.stx_ino || (shown != m_top && foreign(*opened, shown)))
        return keep(shown, opened ? 0 : errno);
    const std::optional<std::vector<std::string>> names = namesIn(folder.get());
    if (!names)
        return keep(shown, errno);
    for (const std::string &child : *names)
        remove(folder.get(), child, shown / child);
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT)
        return;
    // A folder that still holds what was left is not a new problem.
    if (!(m_left && (errno == ENOTEMPTY || errno == EEXIST)))
        keep(shown, errno);
}

FileDescriptor TreeRemover::openFolder(int parent, const std::string &name, const struct statx &info) const
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    if (!m_makeWritable || (info.stx_mode & S_IRWXU) == S_IRWXU)
        return FileDescriptor(::openat(parent, name.c_str(), flags));
    // A path descriptor needs no permission on the folder and pins it, so the mode
    // change reaches exactly the folder that was examined, never a link's target.
    const FileDescriptor pinned(
        ::openat(parent, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat current {};
    if (!pinned || ::fstat(pinned.get(), &current) != 0)
        return FileDescriptor();
    if (current.st_ino == info.stx_ino) {
        const std::string self = "/proc/self/fd/" + std::to_string(pinned.get());
        ::chmod(self.c_str(), (current.st_mode & 07777) | S_IRWXU); // a refusal shows when opening
    }
    return FileDescriptor(::openat(pinned.get(), ".", flags));
}

bool TreeRemover::foreign(const struct statx &info, const fs::path &shown) const
{
    if (mountRoot(info) || deviceOf(info) != m_device)
        return foreignAt(info, m_device, {});
    // Old kernels: look the real path up in the mount table.
    const fs::path realTop = realPath(m_top);
    return foreignAt(info, m_device,
                     realTop.empty() ? fs::path() : realTop / shown.lexically_relative(m_top));
}

void TreeRemover::keep(const fs::path &shown, int error)
{
    if (m_left)
        return;
    m_left = shown;
    m_error = error;
}

void TreeRemover::report() const
{
    if (!m_left)
        return;
    if (m_error == 0)
        throw RemovalError(*m_left,
                           quoted(*m_left) + " is the mount point of another volume and was left in place.");
    if (*m_left == m_top)
        throw PosixError(m_error, *m_left);
    try {
        throwPosixError(*m_left, m_error);
    } catch (const PosixError &error) {
        // Constructed here so that it carries the system error as its nested one.
        throw RemovalError(*m_left,
                           quoted(*m_left) + " could not be removed: " + error.code().message() + ".");
    }
}

} // namespace

bool isMountPoint(const fs::path &item)
{
    const std::optional<struct statx> info = attributesAt(AT_FDCWD, item.c_str());
    if (!info)
        return false;
    if (const std::optional<bool> root = mountRoot(*info))
        return *root;
    struct stat folder {};
    const fs::path absolute = fs::absolute(item);
    if (::stat(absolute.parent_path().c_str(), &folder) == 0 && folder.st_dev != deviceOf(*info))
        return true;
    const fs::path real = realPath(item);
    return !real.empty() && mountPoints().count(real) > 0;
}

void removeTree(const fs::path &item, bool makeWritable)
{
    fs::path absolute = fs::absolute(item).lexically_normal();
    if (!absolute.has_filename() && absolute.has_relative_path())
        absolute = absolute.parent_path();
    const std::string name = absolute.filename().native();
    if (name.empty() || name == "." || name == "..")
        throwPosixError(item, EINVAL);
    const FileDescriptor parent(::open(absolute.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!parent && errno == ENOENT)
        return;
    if (!parent)
        throwPosixError(item);
    const std::optional<struct statx> info = attributesAt(parent.get(), name.c_str());
    if (!info && errno == ENOENT)
        return;
    if (!info)
        throwPosixError(item);
    if (isMountPoint(absolute))
        throw RemovalError(item,
                           quoted(item) + " is the mount point of another volume; nothing was removed.");
    TreeRemover remover(item, deviceOf(*info), makeWritable);
    remover.remove(parent.get(), name, item);
    remover.report();
}

} // namespace quillorn
