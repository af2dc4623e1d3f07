#include "platform/posix/trash.h"

#include "platform/posix/detail/directorysizes.h"
#include "platform/posix/detail/mounttable.h"
#include "platform/posix/detail/trashinfo.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/renaming.h"
#include "platform/posix/userfolders.h"
#include "platform/posix/volume.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quillorn {
namespace {

// A trash folder ready to receive items: its files/ and info/ folders are open,
// so nothing below is ever looked up by path again.
struct TrashFolder {
    std::filesystem::path path;
    // The folder relative to which Path= is written; empty for the home trash,
    // whose entries always carry absolute paths.
    std::filesystem::path topdir;
    FileDescriptor files;
    FileDescriptor info;
};

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

// Opens parent/name as a folder, never through a symbolic link, creating it with
// mode when it is missing and create is true. Invalid on failure, errno set.
FileDescriptor openFolder(int parent, const std::string &name, bool create, mode_t mode)
{
    FileDescriptor folder(::openat(parent, name.c_str(), kFolderFlags | O_NOFOLLOW));
    if (folder || errno != ENOENT || !create)
        return folder;
    if (::mkdirat(parent, name.c_str(), mode) != 0 && errno != EEXIST)
        return FileDescriptor();
    return FileDescriptor(::openat(parent, name.c_str(), kFolderFlags | O_NOFOLLOW));
}

bool ownedFolder(const FileDescriptor &folder)
{
    struct stat info {};
    return folder && ::fstat(folder.get(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == ::geteuid();
}

std::optional<TrashFolder> completeTrash(FileDescriptor folder, std::filesystem::path path,
                                         std::filesystem::path topdir)
{
    TrashFolder trash{std::move(path), std::move(topdir), {}, {}};
    trash.files = openFolder(folder.get(), "files", true, 0700);
    trash.info = openFolder(folder.get(), "info", true, 0700);
    if (!trash.files || !trash.info)
        return std::nullopt;
    return trash;
}

std::filesystem::path homeTrashPath()
{
    return dataHome() / "Trash";
}

// The device the home trash is (or would be created) on.
std::optional<dev_t> homeTrashDevice(std::filesystem::path path)
{
    struct stat info {};
    while (::stat(path.c_str(), &info) != 0) {
        if (errno != ENOENT || !path.has_relative_path())
            return std::nullopt;
        path = path.parent_path();
    }
    return info.st_dev;
}

std::optional<TrashFolder> openHomeTrash()
{
    const std::filesystem::path path = homeTrashPath();
    std::error_code ignored; // an unusable home trash shows as the open below failing
    std::filesystem::create_directories(path.parent_path(), ignored);
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        return std::nullopt;
    // The home trash may be reached through a link the user made (~/.local/share
    // on another disk); only the per-volume trash folders must not be links.
    FileDescriptor folder(::open(path.c_str(), kFolderFlags));
    if (!folder)
        return std::nullopt;
    return completeTrash(std::move(folder), path, {});
}

// Why an existing $topdir/.Trash may not be used, or nothing when it may (or
// when there is none, which is no one's mistake).
const char *unsafeSharedTrash(int top, const FileDescriptor &shared)
{
    struct stat info {};
    if (shared)
        return ::fstat(shared.get(), &info) == 0 && !(info.st_mode & S_ISVTX) ? "not sticky" : nullptr;
    if (::fstatat(top, ".Trash", &info, AT_SYMLINK_NOFOLLOW) != 0)
        return nullptr;
    if (S_ISLNK(info.st_mode))
        return "symbolic link";
    return S_ISDIR(info.st_mode) ? nullptr : "not a folder";
}

// $topdir/.Trash/$uid when the administrator prepared a sticky, real .Trash
// folder; else $topdir/.Trash-$uid. Folders are created only on local volumes:
// users do not want trash folders appearing on shares.
std::optional<TrashFolder> openTopdirTrash(const std::filesystem::path &topdir, bool local,
                                           const TrashReport &report)
{
    FileDescriptor top(::open(topdir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!top)
        return std::nullopt;
    const std::string uid = std::to_string(::geteuid());
    FileDescriptor shared = openFolder(top.get(), ".Trash", false, 0);
    if (const char *unsafe = unsafeSharedTrash(top.get(), shared); unsafe && report)
        report("TRASH SKIPPED path=" + (topdir / ".Trash").string() + " reason=" + unsafe);
    struct stat sharedInfo {};
    if (shared && ::fstat(shared.get(), &sharedInfo) == 0 && (sharedInfo.st_mode & S_ISVTX)) {
        FileDescriptor mine = openFolder(shared.get(), uid, local, 0700);
        if (ownedFolder(mine)) {
            if (auto trash = completeTrash(std::move(mine), topdir / ".Trash" / uid, topdir))
                return trash;
        }
    }
    const std::string ownName = ".Trash-" + uid;
    FileDescriptor own = openFolder(top.get(), ownName, local, 0700);
    if (!ownedFolder(own))
        return std::nullopt;
    return completeTrash(std::move(own), topdir / ownName, topdir);
}

// The mount point holding folder (which has no links in it), from the mount
// table, else by walking up until the device changes.
std::filesystem::path topdirOf(const std::filesystem::path &folder, dev_t device)
{
    struct stat info {};
    if (auto point = detail::mountPointOf(folder, detail::readMountTable())) {
        if (::stat(point->c_str(), &info) == 0 && info.st_dev == device)
            return *point;
    }
    std::filesystem::path top = folder;
    while (top.has_relative_path()) {
        const std::filesystem::path up = top.parent_path();
        if (::stat(up.c_str(), &info) != 0 || info.st_dev != device)
            break;
        top = up;
    }
    return top;
}

// Writes the .trashinfo under a free name (created exclusively, so two programs
// trashing at once never share an entry), then renames the item next to it.
// Returns the item's path in files/.
std::filesystem::path moveIntoTrash(TrashFolder &trash, int parent, const std::string &name,
                                    const std::filesystem::path &original)
{
    const std::filesystem::path recorded =
        trash.topdir.empty() ? original : original.lexically_relative(trash.topdir);
    const std::string contents = detail::trashInfoContents(recorded.native(), detail::deletionDate());
    for (unsigned attempt = 1;; ++attempt) {
        const std::string entry = detail::trashEntryName(name, attempt);
        const std::string infoName = entry + ".trashinfo";
        FileDescriptor info(::openat(trash.info.get(), infoName.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!info && errno == EEXIST)
            continue;
        if (!info && errno == EROFS)
            throw NoTrashError();
        if (!info)
            throwPosixError(trash.path / "info" / infoName);
        const auto dropInfo = [&] { ::unlinkat(trash.info.get(), infoName.c_str(), 0); };
        // Flushed before the move, so a crash never leaves an item in the trash
        // that the desktop cannot put back.
        if (!detail::writeAll(info.get(), contents) || ::fsync(info.get()) != 0) {
            const int error = errno;
            dropInfo();
            throwPosixError(trash.path / "info" / infoName, error);
        }
        info = FileDescriptor();
        try {
            renameWithoutReplacing(parent, name, trash.files.get(), entry, original);
            return trash.path / "files" / entry;
        } catch (const PosixError &error) {
            dropInfo();
            if (error.code().value() != EEXIST) // an orphan in files/ without its info: take the next name
                throw;
        }
    }
}

// A trash entry's files/ and info/ names: files/NAME is told by info/NAME.trashinfo.
struct TrashEntry {
    std::filesystem::path trash;
    std::string name;

    std::filesystem::path info() const { return trash / "info" / (name + ".trashinfo"); }
};

TrashEntry entryOf(const std::filesystem::path &trashed)
{
    const std::string name = trashed.filename().native();
    if (name.empty() || name == "." || name == ".." || trashed.parent_path().filename() != "files")
        throwPosixError(trashed, EINVAL);
    return {trashed.parent_path().parent_path(), name};
}

std::string readInfo(const std::filesystem::path &info)
{
    // A .trashinfo is a few lines; anything far larger is not one.
    constexpr std::size_t limit = 64 * 1024;
    FileDescriptor file(::open(info.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        throwPosixError(info);
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throwPosixError(info);
        if (count == 0)
            return text;
        text.append(buffer, static_cast<std::size_t>(count));
        if (text.size() > limit)
            throw TrashInfoError();
    }
}

// A trashed folder's size joins its trash's cache, so the Trash can be shown
// without walking it again.
std::filesystem::path remembered(std::filesystem::path trashed, const struct stat &item)
{
    if (S_ISDIR(item.st_mode))
        detail::rememberDirectorySize(trashed.parent_path().parent_path(), trashed.filename().native());
    return trashed;
}

} // namespace

std::filesystem::path trashedItemOrigin(const std::filesystem::path &trashed)
{
    const TrashEntry entry = entryOf(trashed);
    const std::optional<std::string> recorded = detail::trashInfoPath(readInfo(entry.info()));
    if (!recorded || recorded->empty())
        throw TrashInfoError();
    std::filesystem::path origin(*recorded);
    if (origin.is_relative()) {
        // Relative to the folder the trash lives in: $topdir for $topdir/.Trash-$uid
        // and $XDG_DATA_HOME/Trash, but $topdir too for $topdir/.Trash/$uid.
        for (const std::filesystem::path &part : origin)
            if (part == "..")
                throw TrashInfoError();
        const std::filesystem::path holder = entry.trash.parent_path();
        origin = (holder.filename() == ".Trash" ? holder.parent_path() : holder) / origin;
    }
    origin = origin.lexically_normal();
    if (!origin.has_filename())
        throw TrashInfoError();
    return origin;
}

std::filesystem::path restoreTrashedItem(const std::filesystem::path &trashed)
{
    return restoreTrashedItem(trashed, trashedItemOrigin(trashed));
}

std::filesystem::path restoreTrashedItem(const std::filesystem::path &trashed,
                                         const std::filesystem::path &target)
{
    const TrashEntry entry = entryOf(trashed);
    struct stat folder {};
    if (::stat(target.parent_path().c_str(), &folder) != 0)
        throwPosixError(target.parent_path());
    if (!S_ISDIR(folder.st_mode))
        throwPosixError(target.parent_path(), ENOTDIR);
    try {
        renameWithoutReplacing(trashed, target);
    } catch (const PosixError &error) {
        // Named after the place the user knows, not the trash entry.
        if (error.code().value() == EEXIST)
            throwPosixError(target, EEXIST);
        throw;
    }
    // The item is back: an info left over would only show as a broken entry.
    ::unlink(entry.info().c_str());
    detail::forgetDirectorySizes(entry.trash, {entry.name});
    return target;
}

std::filesystem::path trashItem(const std::filesystem::path &item, const TrashReport &report)
{
    const std::filesystem::path absolute = std::filesystem::absolute(item).lexically_normal();
    const std::string name = absolute.filename().native();
    if (name.empty() || name == "." || name == "..")
        throwPosixError(item, EINVAL);

    // Resolve links in the folder (not in the item itself: a link is trashed as a
    // link) so the mount point and the recorded path are the real ones.
    char *resolved = ::realpath(absolute.parent_path().c_str(), nullptr);
    if (!resolved)
        throwPosixError(absolute.parent_path());
    const std::filesystem::path folder(resolved);
    std::free(resolved);
    FileDescriptor parent(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat info {};
    if (!parent || ::fstatat(parent.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        throwPosixError(item);
    const std::filesystem::path original = folder / name;
    struct stat folderInfo {};
    if (::fstat(parent.get(), &folderInfo) != 0)
        throwPosixError(folder);
    // A mount point cannot be renamed away; refuse before any trash folder is made.
    if (info.st_dev != folderInfo.st_dev)
        throwPosixError(item, EBUSY);

    if (homeTrashDevice(homeTrashPath()) == info.st_dev) {
        std::optional<TrashFolder> home = openHomeTrash();
        if (!home)
            throw NoTrashError();
        try {
            return remembered(moveIntoTrash(*home, parent.get(), name, original), info);
        } catch (const PosixError &error) {
            // Same device but another mount of it (a bind mount): rename cannot
            // cross, so the item goes to its own mount's trash instead.
            if (error.code().value() != EXDEV)
                throw;
        }
    }
    const std::filesystem::path topdir = topdirOf(folder, folderInfo.st_dev);
    std::optional<TrashFolder> trash = openTopdirTrash(topdir, volumeIsLocal(topdir), report);
    if (!trash)
        throw NoTrashError();
    return remembered(moveIntoTrash(*trash, parent.get(), name, original), info);
}

} // namespace quillorn
