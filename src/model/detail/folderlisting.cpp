#include "model/detail/folderlisting.h"

#include "platform/core/collation.h"
#include "platform/core/displaytext.h"
#include "platform/posix/posixerror.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <numeric>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace quillorn::detail {

namespace {

using Clock = std::chrono::system_clock;

struct DirCloser {
    void operator()(DIR *dir) const { ::closedir(dir); }
};

FileEntry::Time modificationTime(const struct stat &st)
{
    const auto sinceEpoch = std::chrono::seconds(st.st_mtim.tv_sec) + std::chrono::nanoseconds(st.st_mtim.tv_nsec);
    return FileEntry::Time(std::chrono::duration_cast<Clock::duration>(sinceEpoch));
}

// The facts of one item, following a symbolic link when it leads somewhere.
// Returns false when the item vanished between readdir and now.
bool readFacts(int folderFd, const char *name, unsigned char type, const std::filesystem::path &folder,
               struct stat &st)
{
    if (type != DT_LNK && type != DT_UNKNOWN) {
        if (::fstatat(folderFd, name, &st, AT_SYMLINK_NOFOLLOW) == 0)
            return true;
    } else if (::fstatat(folderFd, name, &st, 0) == 0) {
        return true;
    }
    // A dangling link, or a link into a place this user may not enter: list
    // the link itself, as a file.
    if (::fstatat(folderFd, name, &st, AT_SYMLINK_NOFOLLOW) == 0)
        return true;
    if (errno == ENOENT)
        return false; // deleted meanwhile: the folder no longer holds it
    throwPosixError(folder / name);
}

FileEntry makeEntry(const std::string &prefix, const char *name, const struct stat &st)
{
    std::string url;
    const std::size_t nameLength = std::strlen(name);
    url.reserve(prefix.size() + nameLength);
    url.append(prefix).append(name, nameLength);
    const bool directory = S_ISDIR(st.st_mode);
    return FileEntry{std::filesystem::path(std::move(url)), directory,
                     directory ? 0 : static_cast<std::int64_t>(st.st_size), modificationTime(st)};
}

std::string_view nameOf(const FileEntry &entry)
{
    const std::string &url = entry.url.native();
    return std::string_view(url).substr(url.rfind('/') + 1);
}

// Orders the entries folders first, then by collation key; fills the ranks.
void orderByName(FolderListing &listing)
{
    auto &entries = listing.entries;
    const Collation collation;
    std::string keys;
    keys.reserve(entries.size() * 24);
    std::vector<std::uint32_t> keyEnds(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        collation.appendSortKey(nameOf(entries[i]), keys);
        keyEnds[i] = static_cast<std::uint32_t>(keys.size());
    }
    auto keyOf = [&](std::uint32_t i) {
        const std::uint32_t begin = i == 0 ? 0 : keyEnds[i - 1];
        return std::string_view(keys).substr(begin, keyEnds[i] - begin);
    };
    std::vector<std::uint32_t> order(entries.size());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        if (entries[a].directory != entries[b].directory)
            return entries[a].directory;
        return keyOf(a) < keyOf(b);
    });

    std::vector<FileEntry> sorted;
    sorted.reserve(entries.size());
    listing.nameRanks.resize(entries.size());
    for (std::size_t position = 0; position < order.size(); ++position) {
        const bool tie = position > 0 && keyOf(order[position]) == keyOf(order[position - 1]);
        listing.nameRanks[position] =
            tie ? listing.nameRanks[position - 1] : static_cast<std::uint32_t>(position);
        sorted.push_back(std::move(entries[order[position]]));
    }
    entries = std::move(sorted);
}

QString quoted(const std::filesystem::path &path)
{
    const QString name = displayName(path);
    return QStringLiteral("‘") + (name.isEmpty() ? displayText(path) : name) + QStringLiteral("’");
}

ListingFailure failure(const PosixError &error, const std::filesystem::path &folder)
{
    const QString reason = QString::fromStdString(error.code().message());
    if (error.path() == folder)
        return {QStringLiteral("The folder %1 cannot be listed: %2.").arg(quoted(folder), reason)};
    return {QStringLiteral("The item %1 cannot be read: %2.").arg(quoted(error.path()), reason)};
}

} // namespace

std::optional<ListingResult> listFolder(const std::filesystem::path &folder, bool showHidden,
                                        const std::atomic<bool> &cancelled)
{
    try {
        const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0)
            throwPosixError(folder);
        std::unique_ptr<DIR, DirCloser> dir(::fdopendir(fd));
        if (!dir) {
            const int code = errno;
            ::close(fd);
            throwPosixError(folder, code);
        }
        std::string prefix = folder.native();
        if (prefix.empty() || prefix.back() != '/')
            prefix.push_back('/');

        FolderListing listing;
        struct stat st;
        for (;;) {
            errno = 0;
            const dirent *item = ::readdir(dir.get());
            if (!item) {
                if (errno != 0)
                    throwPosixError(folder);
                break;
            }
            const char *name = item->d_name;
            if (name[0] == '.' && (!showHidden || name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                continue;
            if (cancelled.load(std::memory_order_relaxed))
                return std::nullopt;
            if (readFacts(fd, name, item->d_type, folder, st))
                listing.entries.push_back(makeEntry(prefix, name, st));
        }
        if (cancelled.load(std::memory_order_relaxed))
            return std::nullopt;
        orderByName(listing);
        listing.index = UrlIndex(listing.entries);
        return ListingResult(std::move(listing));
    } catch (const PosixError &error) {
        return ListingResult(failure(error, folder));
    }
}

bool sameEntries(const std::vector<FileEntry> &a, const std::vector<FileEntry> &b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const FileEntry &x, const FileEntry &y) {
        return x.size == y.size && x.modified == y.modified && x.directory == y.directory &&
               x.url.native() == y.url.native();
    });
}

} // namespace quillorn::detail
