#include "platform/posix/renaming.h"

#include "platform/posix/posixerror.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillorn {
namespace {

std::optional<struct stat> attributes(int folder, const std::string &name)
{
    struct stat info {};
    if (::fstatat(folder, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    return info;
}

bool sameItem(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::string asciiFolded(std::string name)
{
    for (char &c : name)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return name;
}

bool listed(int folder, const std::string &name)
{
    const int reading = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (reading < 0)
        return true; // cannot tell: assume the name is another item
    DIR *stream = ::fdopendir(reading);
    if (!stream) {
        ::close(reading);
        return true;
    }
    bool found = false;
    while (const dirent *entry = ::readdir(stream))
        if (entry->d_name == name) {
            found = true;
            break;
        }
    ::closedir(stream);
    return found;
}

// Same folder, names equal but for letter case, and only the old spelling listed.
bool caseOnlyRename(int fromFolder, const std::string &fromName, int toFolder, const std::string &toName)
{
    return fromFolder == toFolder && fromName != toName && asciiFolded(fromName) == asciiFolded(toName) &&
           !listed(toFolder, toName);
}

// Refusals of a hard link that say nothing about the name: FAT has no hard links
// (fusefat: EPERM), some servers answer ENOTSUP or ENOSYS, protected_hardlinks
// refuses a link to another user's file (EPERM), and a file can be at its limit.
bool linksRefused(int error)
{
    return error == EPERM || error == ENOTSUP || error == EOPNOTSUPP || error == ENOSYS || error == EMLINK;
}

// link(2) refuses a taken name atomically, as RENAME_NOREPLACE would; the old name
// then goes. False when the volume will not give this item a second name.
bool moveByLink(int fromFolder, const std::string &fromName, int toFolder, const std::string &toName,
                const struct stat &item, const std::filesystem::path &shown)
{
    if (::linkat(fromFolder, fromName.c_str(), toFolder, toName.c_str(), 0) != 0) {
        if (linksRefused(errno))
            return false;
        throwPosixError(shown, errno);
    }
    // The old name is removed only while it still is the item just linked;
    // otherwise the new name is taken back and nothing has moved.
    int error = ENOENT;
    if (const std::optional<struct stat> still = attributes(fromFolder, fromName)) {
        if (!sameItem(*still, item))
            error = ESTALE;
        else if (::unlinkat(fromFolder, fromName.c_str(), 0) == 0)
            return true;
        else
            error = errno;
    }
    const std::optional<struct stat> added = attributes(toFolder, toName);
    if (added && sameItem(*added, item))
        ::unlinkat(toFolder, toName.c_str(), 0);
    throwPosixError(shown, error);
}

bool conflicting(int error)
{
    return error == EEXIST || error == ENOTEMPTY || error == ENOTDIR || error == EISDIR;
}

// A folder has no second name, but an empty folder made first holds its name:
// mkdir(2) refuses a taken name atomically, and rename(2) then replaces that empty
// folder and nothing else (a file or a filled folder makes it fail). Someone who
// creates the name meanwhile finds it taken; only one who removes the placeholder
// and makes an empty folder of their own in the instant before the rename loses
// that empty folder. False when the volume refuses the placeholder or replacing
// it (FAT through fusefat: EPERM).
bool moveOntoPlaceholder(int fromFolder, const std::string &fromName, int toFolder, const std::string &toName,
                         const std::filesystem::path &shown)
{
    if (::mkdirat(toFolder, toName.c_str(), 0700) != 0) {
        if (errno == EEXIST)
            throwPosixError(shown, EEXIST);
        return false;
    }
    const std::optional<struct stat> placeholder = attributes(toFolder, toName);
    if (::renameat(fromFolder, fromName.c_str(), toFolder, toName.c_str()) == 0)
        return true;
    const int error = errno;
    const std::optional<struct stat> now = attributes(toFolder, toName);
    // rmdir(2) refuses a placeholder that someone filled meanwhile: that stays theirs.
    const bool removed = placeholder && now && sameItem(*placeholder, *now) &&
                         ::unlinkat(toFolder, toName.c_str(), AT_REMOVEDIR) == 0;
    if (!removed || conflicting(error))
        throwPosixError(shown, EEXIST);
    return false;
}

} // namespace

void renameWithoutReplacing(int fromFolder, const std::string &fromName, int toFolder,
                            const std::string &toName, const std::filesystem::path &shown)
{
    if (::renameat2(fromFolder, fromName.c_str(), toFolder, toName.c_str(), RENAME_NOREPLACE) == 0)
        return;
    const int error = errno;
    if (error != EEXIST && error != EINVAL && error != ENOSYS)
        throwPosixError(shown, error);
    const std::optional<struct stat> item = attributes(fromFolder, fromName);
    if (!item)
        throwPosixError(shown, errno);
    if (const std::optional<struct stat> taken = attributes(toFolder, toName)) {
        // Two names of one file (a hard link) are left alone by rename(2) itself,
        // so only a case-insensitive volume gets here with the same item twice.
        if (fromName == toName ||
            !(sameItem(*item, *taken) || caseOnlyRename(fromFolder, fromName, toFolder, toName)))
            throwPosixError(shown, EEXIST);
        // The volume answers for the new spelling with the item itself, so a
        // second name or a placeholder would find it taken.
        if (::renameat(fromFolder, fromName.c_str(), toFolder, toName.c_str()) != 0)
            throwPosixError(shown, errno);
        return;
    }
    if (error == EEXIST)
        throwPosixError(shown, EEXIST); // the name went away again; still not ours to take
    if (S_ISDIR(item->st_mode) ? moveOntoPlaceholder(fromFolder, fromName, toFolder, toName, shown)
                               : moveByLink(fromFolder, fromName, toFolder, toName, *item, shown))
        return;
    // Neither trick works on this volume: the name is checked right before a plain
    // rename, which leaves the few instructions between the two open to an item
    // made there meanwhile, which would be replaced.
    if (attributes(toFolder, toName))
        throwPosixError(shown, EEXIST);
    if (::renameat(fromFolder, fromName.c_str(), toFolder, toName.c_str()) != 0)
        throwPosixError(shown, errno);
}

void renameWithoutReplacing(const std::filesystem::path &from, const std::filesystem::path &to)
{
    const int folder = ::open(from.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        throwPosixError(from, errno);
    const int target = from.parent_path() == to.parent_path()
                           ? folder
                           : ::open(to.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (target < 0) {
        const int error = errno;
        ::close(folder);
        throwPosixError(to, error);
    }
    try {
        renameWithoutReplacing(folder, from.filename().native(), target, to.filename().native(), from);
    } catch (...) {
        ::close(folder);
        if (target != folder)
            ::close(target);
        throw;
    }
    ::close(folder);
    if (target != folder)
        ::close(target);
}

bool sameItemInAnotherCase(const std::filesystem::path &item, const std::filesystem::path &to)
{
    if (item.parent_path() != to.parent_path())
        return false;
    const int folder = ::open(item.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return false;
    struct stat taken {};
    const bool result = ::fstatat(folder, to.filename().c_str(), &taken, AT_SYMLINK_NOFOLLOW) == 0 &&
                        caseOnlyRename(folder, item.filename().native(), folder, to.filename().native());
    ::close(folder);
    return result;
}

} // namespace quillorn
