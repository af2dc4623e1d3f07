#include "platform/posix/privatefolder.h"

#include "platform/posix/posixerror.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace fs = std::filesystem;

namespace quillorn {

void createPrivateFolders(const fs::path &folder)
{
    const fs::path absolute = fs::absolute(folder).lexically_normal();
    std::vector<fs::path> missing;
    struct stat info {};
    for (fs::path step = absolute; ::stat(step.c_str(), &info) != 0; step = step.parent_path()) {
        if (errno != ENOENT || !step.has_relative_path())
            throwPosixError(step);
        missing.push_back(step);
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
        if (::mkdir(it->c_str(), 0700) != 0 && errno != EEXIST)
            throwPosixError(*it);
    }
}

FileDescriptor openPrivateFolder(const fs::path &folder)
{
    createPrivateFolders(folder);
    FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (!opened || ::fstat(opened.get(), &info) != 0)
        throwPosixError(folder);
    if (info.st_uid != ::geteuid())
        throwPosixError(folder, EPERM);
    if ((info.st_mode & 077) != 0 && ::fchmod(opened.get(), info.st_mode & 0700) != 0)
        throwPosixError(folder);
    return opened;
}

} // namespace quillorn
