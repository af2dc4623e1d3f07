#include "platform/posix/userfolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace quillorn {
namespace {

std::filesystem::path userFolder(const char *variable, const char *belowHome)
{
    if (const char *value = std::getenv(variable); value && *value == '/')
        return value;
    if (const char *home = std::getenv("HOME"); home && *home)
        return std::filesystem::path(home) / belowHome;
    if (const passwd *user = ::getpwuid(::getuid()); user && user->pw_dir)
        return std::filesystem::path(user->pw_dir) / belowHome;
    return "/tmp";
}

} // namespace

std::filesystem::path dataHome()
{
    return userFolder("XDG_DATA_HOME", ".local/share");
}

std::filesystem::path stateHome()
{
    return userFolder("XDG_STATE_HOME", ".local/state");
}

} // namespace quillorn
