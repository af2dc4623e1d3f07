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

} // namespace

void renameWithoutReplacing(int fromFolder, const std::string &fromName, int toFolder,
                            const std::string &toName, const std::filesystem::path &shown)
{
    if (::renameat2(fromFolder, fromName.c_str(), toFolder, toName.c_str(), RENAME_NOREPLACE) == 0)
        return;
    const int error = errno;
    if (error != EEXIST && error != EINVAL && error != ENOSYS)
        throwPosixError(shown, error);
    const std::optional<struct stat> taken = attributes(toFolder, toName);
    if (taken) {
        const std::optional<struct stat> item = attributes(fromFolder, fromName);
        // Two names of one file (a hard link) are left alone by rename(2) itself,
        // so only a case-insensitive volume gets here with the same item twice.
        if (!item || fromName == toName ||
            !(sameItem(*item, *taken) || caseOnlyRename(fromFolder, fromName, toFolder, toName)))
            throwPosixError(shown, EEXIST);
    } else if (error == EEXIST) {
        throwPosixError(shown, EEXIST); // the name went away again; still not ours to take
    }
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
