#include "platform/posix/userfolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

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

std::filesystem::path configHome()
{
    return userFolder("XDG_CONFIG_HOME", ".config");
}

// Read the way xdg-user-dirs' own lookup reads the file it writes: lines
// XDG_<NAME>_DIR="$HOME/<path>" or ="/<path>", a backslash escaping the next
// byte, the last such line winning. The bytes are the file's: a name in another
// encoding stays as it is.
std::optional<std::filesystem::path> desktopUserFolder(std::string_view name,
                                                       const std::filesystem::path &home)
{
    std::ifstream file(configHome() / "user-dirs.dirs", std::ios::binary);
    const std::string key = "XDG_" + std::string(name) + "_DIR";
    std::optional<std::filesystem::path> found;
    std::string line;
    while (std::getline(file, line)) {
        std::string_view rest(line);
        const auto skipBlanks = [&rest] {
            while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t'))
                rest.remove_prefix(1);
        };
        skipBlanks();
        if (!rest.starts_with(key))
            continue;
        rest.remove_prefix(key.size());
        skipBlanks();
        if (!rest.starts_with('='))
            continue;
        rest.remove_prefix(1);
        skipBlanks();
        if (!rest.starts_with('"'))
            continue;
        rest.remove_prefix(1);
        const bool belowHome = rest.starts_with("$HOME/");
        if (belowHome)
            rest.remove_prefix(6);
        else if (!rest.starts_with('/'))
            continue;
        std::string value;
        for (std::size_t at = 0; at < rest.size() && rest[at] != '"'; ++at) {
            if (rest[at] == '\\' && at + 1 < rest.size())
                ++at;
            value += rest[at];
        }
        // "$HOME/" is how the program records a folder the user turned off.
        while (value.size() > 1 && value.back() == '/')
            value.pop_back();
        if (belowHome)
            found = value.empty() || value == "/" ? home : home / value;
        else
            found = std::filesystem::path(value);
    }
    return found;
}

std::filesystem::path downloadsFolder(const std::filesystem::path &home)
{
    std::error_code error;
    if (const auto recorded = desktopUserFolder("DOWNLOAD", home);
        recorded && std::filesystem::is_directory(*recorded, error))
        return *recorded;
    if (std::filesystem::is_directory(home / "Downloads", error))
        return home / "Downloads";
    return home;
}

} // namespace quillorn
