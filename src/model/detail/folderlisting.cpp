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
#include <thread>
#include <unistd.h>

namespace quillorn::detail {

namespace {

using Clock = std::chrono::system_clock;

struct DirCloser {
    void operator()(DIR *dir) const { ::closedir(dir); }
};

FileEntry::Time modificationTime(const struct stat &st)
{
    const auto sinceEpoch =
        std::chrono::seconds(st.st_mtim.tv_sec) + std::chrono::nanoseconds(st.st_mtim.tv_nsec);
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

FileEntry makeEntry(const std::string &prefix, std::string_view name, const struct stat &st)
{
    std::string url;
    url.reserve(prefix.size() + name.size());
    url.append(prefix).append(name);
    const bool directory = S_ISDIR(st.st_mode);
    return FileEntry{std::filesystem::path(std::move(url)), directory,
                     directory ? 0 : static_cast<std::int64_t>(st.st_size), modificationTime(st)};
}

// The names readdir returned, each ending in a NUL, in one buffer: a folder of
// 100,000 names then costs two allocations instead of 100,000.
struct ReadNames {
    std::string bytes;
    std::vector<std::uint32_t> starts;
    std::vector<unsigned char> types;

    void append(const dirent &item)
    {
        starts.push_back(static_cast<std::uint32_t>(bytes.size()));
        types.push_back(item.d_type);
        bytes.append(item.d_name).push_back('\0');
    }
    std::size_t size() const { return starts.size(); }
    const char *name(std::size_t i) const { return bytes.data() + starts[i]; }
    std::string_view view(std::size_t i) const
    {
        const std::size_t end = (i + 1 < starts.size() ? starts[i + 1] : bytes.size()) - 1;
        return std::string_view(bytes).substr(starts[i], end - starts[i]);
    }
};

// The examined part of a listing: entries with their collation keys, and the
// order of those entries (folders first, then by key).
struct Part {
    std::vector<FileEntry> entries;
    std::string keys; // packed; entry i's key ends at keyEnds[i]
    std::vector<std::uint32_t> keyEnds;
    std::vector<std::uint32_t> order;
    std::optional<PosixError> error;
    bool cancelled = false;

    std::string_view key(std::uint32_t i) const
    {
        const std::uint32_t begin = i == 0 ? 0 : keyEnds[i - 1];
        return std::string_view(keys).substr(begin, keyEnds[i] - begin);
    }
};

// Reads the facts of items, makes entries and keys and orders them. Runs on
// two threads for large folders: the stat calls and the collation keys are
// most of a listing's time, and both parallelise well.
void examine(int folderFd, const std::filesystem::path &folder, const std::string &prefix,
             const ReadNames &items, std::size_t begin, std::size_t end, const std::atomic<bool> &cancelled,
             Part &part)
{
    try {
        const Collation collation;
        part.entries.reserve(end - begin);
        part.keyEnds.reserve(end - begin);
        part.keys.reserve((end - begin) * 24);
        struct stat st;
        for (std::size_t i = begin; i < end; ++i) {
            if (cancelled.load(std::memory_order_relaxed)) {
                part.cancelled = true;
                return;
            }
            if (!readFacts(folderFd, items.name(i), items.types[i], folder, st))
                continue;
            part.entries.push_back(makeEntry(prefix, items.view(i), st));
            collation.appendSortKey(items.view(i), part.keys);
            part.keyEnds.push_back(static_cast<std::uint32_t>(part.keys.size()));
        }
        part.order.resize(part.entries.size());
        std::iota(part.order.begin(), part.order.end(), 0u);
        std::stable_sort(part.order.begin(), part.order.end(), [&](std::uint32_t a, std::uint32_t b) {
            if (part.entries[a].directory != part.entries[b].directory)
                return part.entries[a].directory;
            return part.key(a) < part.key(b);
        });
    } catch (const PosixError &error) {
        part.error = error;
    }
}

// Merges the two ordered parts (the first wins ties, so the order stays that
// of readdir among equals) into the listing, with name ranks.
FolderListing merge(Part &first, Part &second)
{
    const auto firstCount = static_cast<std::uint32_t>(first.entries.size());
    const auto partOf = [&](std::uint32_t g) -> std::pair<Part &, std::uint32_t> {
        return g < firstCount ? std::pair<Part &, std::uint32_t>(first, g)
                              : std::pair<Part &, std::uint32_t>(second, g - firstCount);
    };
    const auto key = [&](std::uint32_t g) {
        auto [part, i] = partOf(g);
        return part.key(i);
    };
    const auto directory = [&](std::uint32_t g) {
        auto [part, i] = partOf(g);
        return part.entries[i].directory;
    };
    std::vector<std::uint32_t> secondOrder(second.order);
    for (std::uint32_t &i : secondOrder)
        i += firstCount;
    std::vector<std::uint32_t> order(first.order.size() + secondOrder.size());
    std::merge(first.order.begin(), first.order.end(), secondOrder.begin(), secondOrder.end(), order.begin(),
               [&](std::uint32_t a, std::uint32_t b) {
                   if (directory(a) != directory(b))
                       return directory(a);
                   return key(a) < key(b);
               });

    FolderListing listing;
    listing.entries.reserve(order.size());
    listing.nameRanks.resize(order.size());
    listing.names.reserve(order.size(), order.size() * 16);
    for (std::size_t position = 0; position < order.size(); ++position) {
        const bool tie = position > 0 && key(order[position]) == key(order[position - 1]);
        listing.nameRanks[position] =
            tie ? listing.nameRanks[position - 1] : static_cast<std::uint32_t>(position);
        auto [part, i] = partOf(order[position]);
        listing.entries.push_back(std::move(part.entries[i]));
        const std::string &url = listing.entries.back().url.native();
        listing.names.append(std::string_view(url).substr(url.rfind('/') + 1));
    }
    return listing;
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
    // Below this a second thread costs more than it saves.
    constexpr std::size_t parallelFrom = 2000;
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

        ReadNames items;
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
            items.append(*item);
            if (items.size() % 512 == 0 && cancelled.load(std::memory_order_relaxed))
                return std::nullopt;
        }

        Part first, second;
        const std::size_t middle = items.size() >= parallelFrom ? items.size() / 2 : items.size();
        std::thread helper;
        if (middle < items.size()) {
            try {
                helper = std::thread(examine, fd, std::cref(folder), std::cref(prefix), std::cref(items),
                                     middle, items.size(), std::cref(cancelled), std::ref(second));
            } catch (const std::system_error &) {
                // No thread to be had: do both parts here.
            }
        }
        examine(fd, folder, prefix, items, 0, middle, cancelled, first);
        if (helper.joinable())
            helper.join();
        else if (middle < items.size())
            examine(fd, folder, prefix, items, middle, items.size(), cancelled, second);
        if (first.cancelled || second.cancelled || cancelled.load(std::memory_order_relaxed))
            return std::nullopt;
        if (first.error || second.error)
            throw first.error ? *first.error : *second.error;

        return ListingResult(merge(first, second));
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
