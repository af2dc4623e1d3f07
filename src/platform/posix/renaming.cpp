#include "platform/posix/renaming.h"

#include "platform/posix/posixerror.h"

#include <cerrno>
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

} // namespace

void renameWithoutReplacing(int fromFolder, const std::string &fromName, int toFolder, const std::string &toName,
                            const std::filesystem::path &shown)
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
        if (!item || !sameItem(*item, *taken) || fromName == toName)
            throwPosixError(shown, EEXIST);
    } else if (error == EEXIST) {
        throwPosixError(shown, EEXIST); // the name went away again; still not ours to take
    }
    if (::renameat(fromFolder, fromName.c_str(), toFolder, toName.c_str()) != 0)
        throwPosixError(shown, errno);
}

void renameWithoutReplacing(const std::filesystem::path &from, const std::filesystem::path &to)
{
    renameWithoutReplacing(AT_FDCWD, from.native(), AT_FDCWD, to.native(), from);
}

} // namespace quillorn
