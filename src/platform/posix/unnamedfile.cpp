#include "platform/posix/unnamedfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace quillorn {
namespace {

std::string descriptorPath(int descriptor)
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}

} // namespace

FileDescriptor createUnnamedFile(int folder, mode_t mode)
{
    // Naming goes through /proc (AT_EMPTY_PATH would need CAP_DAC_READ_SEARCH):
    // without it the file could never be named, so it is not made at all.
    if (::access("/proc/self/fd", X_OK) != 0)
        return {};
    return FileDescriptor(::openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
}

int nameUnnamedFile(int descriptor, int folder, const std::string &name)
{
    // linkat refuses a taken name (EEXIST) and follows only the /proc link to
    // the open file itself, never a link at name. Not retried on EINTR: a link
    // made before the interruption would then fail as a taken name.
    if (::linkat(AT_FDCWD, descriptorPath(descriptor).c_str(), folder, name.c_str(), AT_SYMLINK_FOLLOW) != 0)
        return errno;
    return 0;
}

} // namespace quillorn
