#include "model/detail/filecommands.h"

#include "platform/posix/posixerror.h"

#include <cerrno>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

namespace quillorn::detail {

namespace {

// A name that appears between the check and the rename must not be replaced:
// RENAME_NOREPLACE makes the kernel refuse it. File systems without the flag
// (some network ones) answer EINVAL and get a plain rename.
void renameWithoutReplacing(const std::filesystem::path &from, const std::filesystem::path &to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return;
    if (errno != EINVAL && errno != ENOSYS)
        throwPosixError(from);
    if (::rename(from.c_str(), to.c_str()) != 0)
        throwPosixError(from);
}

} // namespace

void renameItem(const std::filesystem::path &item, const std::string &name)
{
    const std::filesystem::path target = FileOperations::child(name, item.parent_path());
    renameWithoutReplacing(item, target);
}

void createFolder(const std::string &name, const std::filesystem::path &folder)
{
    const std::filesystem::path target = FileOperations::child(name, folder);
    if (::mkdir(target.c_str(), 0777) != 0)
        throwPosixError(target);
}

void discardItems(const FileOperations &operations, const std::vector<std::filesystem::path> &items)
{
    for (const std::filesystem::path &item : items)
        operations.discard(item, true);
}

} // namespace quillorn::detail
