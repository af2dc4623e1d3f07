#include "platform/posix/detail/directorysizes.h"

#include "platform/posix/detail/trashinfo.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/treewalk.h"

#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quillorn::detail {

namespace {

constexpr const char *kCacheName = "directorysizes";

std::optional<std::int64_t> number(std::string_view text)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0)
        return std::nullopt;
    return value;
}

// Adds every entry's blocks, each inode with several links once.
class UsageCount : public TreeWalk::Visitor {
public:
    explicit UsageCount(std::stop_token stop) : m_stop(std::move(stop)) {}

    TreeWalk::Next entry(const TreeWalk::Entry &entry) override
    {
        if (m_stop.stop_requested())
            return TreeWalk::Next::stop;
        if (entry.kind == TreeWalk::Kind::directory || entry.links < 2 ||
            m_linked.emplace(entry.device, entry.inode).second)
            blocks += entry.blocks;
        return TreeWalk::Next::proceed;
    }
    TreeWalk::Next failed(const TreeWalk::Entry &, int) override { return TreeWalk::Next::proceed; }

    std::uint64_t blocks = 0;

private:
    std::stop_token m_stop;
    std::set<std::pair<std::uint64_t, std::uint64_t>> m_linked;
};

} // namespace

DirectorySizes readDirectorySizes(const std::filesystem::path &trash)
{
    DirectorySizes sizes;
    FileDescriptor file(::open((trash / kCacheName).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        return sizes;
    std::string text;
    char buffer[8192];
    for (ssize_t count; (count = ::read(file.get(), buffer, sizeof buffer)) != 0;) {
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return {};
        text.append(buffer, std::size_t(count));
    }
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        const std::size_t first = line.find(' ');
        const std::size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
        if (second == std::string_view::npos)
            continue;
        const auto size = number(line.substr(0, first));
        const auto modified = number(line.substr(first + 1, second - first - 1));
        const auto name = percentDecode(line.substr(second + 1));
        if (!size || !modified || !name || name->empty() || name->find('/') != std::string::npos ||
            *name == "." || *name == "..")
            continue;
        sizes[*name] = {*size, *modified};
    }
    return sizes;
}

void writeDirectorySizes(const std::filesystem::path &trash, const DirectorySizes &sizes)
{
    std::string text;
    for (const auto &[name, entry] : sizes)
        text += std::to_string(entry.size) + ' ' + std::to_string(entry.infoModified) + ' ' +
                percentEncode(name) + '\n';
    // A name of its own per writer: another program may be writing the cache now.
    std::string temporary = (trash / kCacheName).native() + ".XXXXXX";
    FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file)
        throwPosixError(trash / kCacheName);
    if (!writeAll(file.get(), text) || ::fchmod(file.get(), 0600) != 0 ||
        ::rename(temporary.c_str(), (trash / kCacheName).c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        throwPosixError(trash / kCacheName, error);
    }
}

std::optional<std::int64_t> diskUsage(const std::filesystem::path &folder, std::stop_token stop)
{
    // Never through a link: a link in files/ is trashed as a link, and counts as one.
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat own {};
    if (fd < 0 || ::fstat(fd, &own) != 0) {
        if (fd >= 0)
            ::close(fd);
        return ::lstat(folder.c_str(), &own) == 0 ? std::optional<std::int64_t>(own.st_blocks * 512)
                                                  : std::nullopt;
    }
    UsageCount count(stop);
    TreeWalk::Options options;
    options.facts = true;
    TreeWalk::walk(TreeWalk::Start{fd, {}, 0, folder.filename().native()}, options, count);
    if (stop.stop_requested())
        return std::nullopt;
    return std::int64_t(own.st_blocks + count.blocks) * 512;
}

std::optional<std::int64_t> infoModified(const std::filesystem::path &trash, const std::string &name)
{
    struct stat info {};
    if (::lstat((trash / "info" / (name + ".trashinfo")).c_str(), &info) != 0)
        return std::nullopt;
    return std::int64_t(info.st_mtim.tv_sec);
}

void rememberDirectorySize(const std::filesystem::path &trash, const std::string &name) noexcept
{
    try {
        const std::optional<std::int64_t> modified = infoModified(trash, name);
        const std::optional<std::int64_t> size = diskUsage(trash / "files" / name);
        if (!modified || !size)
            return;
        DirectorySizes sizes = readDirectorySizes(trash);
        sizes[name] = {*size, *modified};
        writeDirectorySizes(trash, sizes);
    } catch (const std::exception &) {
        // Only a cache: the next reading of the Trash counts the folder.
    }
}

void forgetDirectorySizes(const std::filesystem::path &trash, const std::vector<std::string> &names) noexcept
{
    try {
        DirectorySizes sizes = readDirectorySizes(trash);
        std::size_t dropped = 0;
        for (const std::string &name : names)
            dropped += sizes.erase(name);
        if (dropped > 0)
            writeDirectorySizes(trash, sizes);
    } catch (const std::exception &) {
        // A line left behind names a folder that is gone; readers drop it.
    }
}

} // namespace quillorn::detail
