#include "platform/posix/detail/mounttable.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace quillorn::detail {
namespace {

std::string unescapeOctal(const std::string &field)
{
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        const bool octal = field[i] == '\\' && i + 3 < field.size() && field[i + 1] >= '0' &&
                           field[i + 1] <= '3' && field[i + 2] >= '0' && field[i + 2] <= '7' &&
                           field[i + 3] >= '0' && field[i + 3] <= '7';
        if (octal) {
            out.push_back(static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                            (field[i + 3] - '0')));
            i += 3;
        } else {
            out.push_back(field[i]);
        }
    }
    return out;
}

} // namespace

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue"
std::optional<MountEntry> parseMountInfoLine(const std::string &line)
{
    std::istringstream in(line);
    std::string id, parent, device, root, mountPoint, options;
    if (!(in >> id >> parent >> device >> root >> mountPoint >> options))
        return std::nullopt;
    std::string word;
    while (in >> word && word != "-") {
        // optional fields ("shared:1", "master:2") until the separator
    }
    MountEntry entry;
    if (word != "-" || !(in >> entry.fsType))
        return std::nullopt;
    in >> entry.source;
    unsigned major = 0, minor = 0;
    if (std::sscanf(device.c_str(), "%u:%u", &major, &minor) != 2)
        return std::nullopt;
    entry.device = makedev(major, minor);
    entry.mountId = std::strtoull(id.c_str(), nullptr, 10);
    entry.mountPoint = unescapeOctal(mountPoint);
    entry.source = unescapeOctal(entry.source);
    return entry;
}

std::vector<MountEntry> parseMountTable(const std::string &text)
{
    std::vector<MountEntry> mounts;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (auto entry = parseMountInfoLine(line))
            mounts.push_back(std::move(*entry));
    }
    return mounts;
}

std::string readMountInfo()
{
    std::ifstream file("/proc/self/mountinfo");
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<MountEntry> readMountTable()
{
    return parseMountTable(readMountInfo());
}

std::optional<std::filesystem::path> mountPointOf(const std::filesystem::path &path,
                                                  const std::vector<MountEntry> &mounts)
{
    std::optional<std::filesystem::path> best;
    std::size_t bestDepth = 0;
    for (const MountEntry &mount : mounts) {
        const auto mountEnd =
            std::mismatch(mount.mountPoint.begin(), mount.mountPoint.end(), path.begin(), path.end()).first;
        if (mountEnd != mount.mountPoint.end())
            continue;
        const auto depth = static_cast<std::size_t>(std::distance(mount.mountPoint.begin(), mountEnd));
        if (!best || depth >= bestDepth) {
            best = mount.mountPoint;
            bestDepth = depth;
        }
    }
    return best;
}

} // namespace quillorn::detail
