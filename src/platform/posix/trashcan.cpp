#include "platform/posix/trashcan.h"

#include "platform/posix/detail/directorysizes.h"
#include "platform/posix/detail/trashinfo.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/removal.h"
#include "platform/posix/trash.h"
#include "platform/posix/userfolders.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace quillorn {

namespace {

// A real folder (not a link) owned by the user: the only trash folders used.
bool ownFolder(const fs::path &path, struct stat &info)
{
    return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == ::geteuid();
}

std::string readSmallFile(const fs::path &path)
{
    // A .trashinfo is a few lines; anything far larger is not one.
    constexpr std::size_t limit = 64 * 1024;
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        return {};
    std::string text;
    char buffer[4096];
    for (ssize_t count; (count = ::read(file.get(), buffer, sizeof buffer)) != 0 && text.size() <= limit;) {
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return {};
        text.append(buffer, std::size_t(count));
    }
    return text;
}

fs::path originOf(const fs::path &trashed)
{
    try {
        return trashedItemOrigin(trashed);
    } catch (const std::exception &) {
        return {}; // shown without a place; it can still be deleted
    }
}

// The names of the entries of info/ that end in ".trashinfo", without it.
std::vector<std::string> infoNames(const fs::path &trash)
{
    std::vector<std::string> names;
    std::error_code error;
    fs::directory_iterator entries(trash / "info", error);
    if (error)
        throw PosixError(error.value(), trash / "info");
    constexpr std::string_view suffix = ".trashinfo";
    for (const fs::directory_entry &entry : entries) {
        const std::string name = entry.path().filename().native();
        if (name.size() > suffix.size() && name.ends_with(suffix))
            names.push_back(name.substr(0, name.size() - suffix.size()));
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

std::vector<fs::path> trashFolders(const std::vector<fs::path> &volumes)
{
    std::vector<fs::path> folders;
    std::set<std::pair<dev_t, ino_t>> seen;
    struct stat info {};
    const auto add = [&](const fs::path &folder) {
        if (ownFolder(folder, info) && seen.emplace(info.st_dev, info.st_ino).second)
            folders.push_back(folder);
    };
    add(dataHome() / "Trash");
    const std::string uid = std::to_string(::geteuid());
    for (const fs::path &top : volumes) {
        struct stat shared {};
        // The administrator's shared folder counts only while it is what it must be.
        if (::lstat((top / ".Trash").c_str(), &shared) == 0 && S_ISDIR(shared.st_mode) &&
            (shared.st_mode & S_ISVTX))
            add(top / ".Trash" / uid);
        add(top / (".Trash-" + uid));
    }
    return folders;
}

std::vector<TrashedItem> readTrash(const fs::path &trash, std::stop_token stop)
{
    std::vector<TrashedItem> items;
    const detail::DirectorySizes cached = detail::readDirectorySizes(trash);
    detail::DirectorySizes present;
    for (const std::string &name : infoNames(trash)) {
        if (stop.stop_requested())
            return items;
        TrashedItem item;
        item.trashed = trash / "files" / name;
        struct stat info {};
        if (::lstat(item.trashed.c_str(), &info) != 0)
            continue;
        const std::string text = readSmallFile(trash / "info" / (name + ".trashinfo"));
        item.origin = originOf(item.trashed);
        item.deletionDate = std::string(detail::trashInfoValue(text, "DeletionDate").value_or(""));
        item.folder = S_ISDIR(info.st_mode);
        item.size = std::int64_t(info.st_size);
        if (item.folder) {
            const std::optional<std::int64_t> modified = detail::infoModified(trash, name);
            const auto line = cached.find(name);
            if (line != cached.end() && modified == line->second.infoModified) {
                item.size = line->second.size;
            } else {
                const std::optional<std::int64_t> usage = detail::diskUsage(item.trashed, stop);
                if (!usage)
                    return items; // stopped
                item.size = *usage;
            }
            if (modified)
                present[name] = {item.size, *modified};
        }
        items.push_back(std::move(item));
    }
    if (present != cached) {
        try {
            detail::writeDirectorySizes(trash, present);
        } catch (const std::exception &) {
            // A trash we may read but not write (another user's volume): sizes are counted each time.
        }
    }
    return items;
}

void eraseTrashedItem(const fs::path &trashed)
{
    const std::string name = trashed.filename().native();
    if (name.empty() || name == "." || name == ".." || trashed.parent_path().filename() != "files")
        throwPosixError(trashed, EINVAL);
    const fs::path trash = trashed.parent_path().parent_path();
    removeTree(trashed);
    const fs::path info = trash / "info" / (name + ".trashinfo");
    if (::unlink(info.c_str()) != 0 && errno != ENOENT)
        throwPosixError(info);
    detail::forgetDirectorySizes(trash, {name});
}

} // namespace quillorn
