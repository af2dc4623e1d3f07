#include "services/detail/filecommands.h"

#include "operations/commandererror.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/renaming.h"

#include <cerrno>
#include <sys/stat.h>

namespace quillorn::detail {

namespace {

// The new name is already taken by the item itself: only the letter case changes
// on a volume that ignores it ("Photo.JPG" to "photo.jpg" on a FAT drive).
bool sameItemUnderNewName(const std::filesystem::path &item, const std::filesystem::path &target)
{
    struct stat own {
    }, taken{};
    if (item == target || ::lstat(item.c_str(), &own) != 0 || ::lstat(target.c_str(), &taken) != 0)
        return false;
    return (own.st_dev == taken.st_dev && own.st_ino == taken.st_ino) || sameItemInAnotherCase(item, target);
}

} // namespace

void renameItem(const std::filesystem::path &item, const std::string &name)
{
    const std::filesystem::path folder = item.parent_path();
    std::filesystem::path target;
    try {
        target = FileOperations::child(name, folder);
    } catch (const CommanderError &) {
        // Names are checked before they are looked up, so a name refused here is
        // a valid one that is taken; by the item itself it is no obstacle.
        if (!sameItemUnderNewName(item, folder / name))
            throw;
        target = folder / name;
    }
    renameWithoutReplacing(item, target);
}

void createFolder(const std::string &name, const std::filesystem::path &folder)
{
    const std::filesystem::path target = FileOperations::child(name, folder);
    if (::mkdir(target.c_str(), 0777) != 0)
        throwPosixError(target);
}

} // namespace quillorn::detail
