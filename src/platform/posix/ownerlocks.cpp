#include "platform/posix/ownerlocks.h"

#include "platform/posix/posixerror.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <random>

namespace quillorn {

std::string newOwnerId()
{
    std::random_device random;
    char text[48];
    std::snprintf(text, sizeof text, "%d-%08x%08x", static_cast<int>(::getpid()), random(), random());
    return text;
}

FileDescriptor takeLock(int folder, const std::string &name, const std::filesystem::path &shown)
{
    for (int attempt = 0; attempt < 5; ++attempt) {
        FileDescriptor lock(
            ::openat(folder, name.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!lock || ::flock(lock.get(), LOCK_EX) != 0)
            throwPosixError(shown);
        struct stat held {
        }, named{};
        if (::fstat(lock.get(), &held) == 0 &&
            ::fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
            held.st_ino == named.st_ino && held.st_dev == named.st_dev)
            return lock;
    }
    throwPosixError(shown, EAGAIN);
}

std::set<std::string> ownersIn(int folder, std::string_view prefix)
{
    std::set<std::string> owners;
    DIR *listing = ::fdopendir(::fcntl(folder, F_DUPFD_CLOEXEC, 0));
    if (!listing)
        return owners;
    while (const dirent *entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        const std::size_t dot = name.find('.');
        if (name.compare(0, prefix.size(), prefix) == 0 && dot != std::string::npos)
            owners.insert(name.substr(prefix.size(), dot - prefix.size()));
    }
    ::closedir(listing);
    return owners;
}

std::optional<FileDescriptor> lockOfGoneOwner(int folder, std::string_view prefix, const std::string &owner)
{
    const std::string name = std::string(prefix) + owner + ".lock";
    FileDescriptor lock(::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!lock)
        return errno == ENOENT ? std::optional<FileDescriptor>(FileDescriptor()) : std::nullopt;
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        return std::nullopt;
    return lock;
}

} // namespace quillorn
