#include "platform/posix/itemattributes.h"

#include "platform/posix/posixerror.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <vector>

namespace quillorn {

bool ItemAttributes::isRegular() const
{
    return type == S_IFREG;
}

bool ItemAttributes::isDirectory() const
{
    return type == S_IFDIR;
}

bool ItemAttributes::isSymlink() const
{
    return type == S_IFLNK;
}

ItemAttributes ItemAttributes::read(const std::filesystem::path &item)
{
    struct stat status {};
    if (::lstat(item.c_str(), &status) != 0)
        throwPosixError(item);
    ItemAttributes attributes;
    attributes.type = status.st_mode & S_IFMT;
    attributes.permissions = status.st_mode & 07777;
    attributes.size = status.st_size;
    attributes.owner = status.st_uid;
    attributes.group = status.st_gid;
    attributes.modifiedSeconds = status.st_mtim.tv_sec;
    return attributes;
}

std::string ItemAttributes::typeName(mode_t type)
{
    switch (type & S_IFMT) {
    case S_IFREG:
        return "regular file";
    case S_IFDIR:
        return "directory";
    case S_IFLNK:
        return "symbolic link";
    case S_IFIFO:
        return "fifo";
    case S_IFSOCK:
        return "socket";
    case S_IFCHR:
        return "character special file";
    case S_IFBLK:
        return "block special file";
    default:
        return "Unknown";
    }
}

std::string ItemAttributes::utcDateText(std::int64_t seconds)
{
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (!::gmtime_r(&time, &parts))
        return "Unknown";
    char text[64];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &parts);
    return length ? std::string(text, length) : std::string("Unknown");
}

std::string symlinkTarget(const std::filesystem::path &link)
{
    std::vector<char> buffer(256);
    for (;;) {
        const ssize_t length = ::readlink(link.c_str(), buffer.data(), buffer.size());
        if (length < 0)
            throwPosixError(link);
        if (std::size_t(length) < buffer.size())
            return std::string(buffer.data(), std::size_t(length));
        buffer.resize(buffer.size() * 2);
    }
}

void setPermissions(const std::filesystem::path &item, unsigned permissions)
{
    if (::chmod(item.c_str(), mode_t(permissions & 07777)) != 0)
        throwPosixError(item);
}

} // namespace quillorn
