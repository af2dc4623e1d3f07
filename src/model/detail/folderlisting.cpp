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

// The four facts of one item, as a FileEntry will hold them.
struct Facts {
    std::int64_t size = 0;
    FileEntry::Time modified = FileEntry::distantPast();
    bool directory = false;
    bool present = false; // false: the item vanished after readdir
};

Facts factsOf(const struct stat &st)
{
    const bool directory = S_ISDIR(st.st_mode);
    return {directory ? 0 : static_cast<std::int64_t>(st.st_size), modificationTime(st), directory, true};
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

// Runs work(begin, end, part) over [0, count) in two halves on two threads
// when count is large: the stat calls and the collation keys are most of a
// listing's time, and both parallelise well.
template <typename Work> void inTwoHalves(std::size_t count, Work work)
{
    constexpr std::size_t parallelFrom = 2000; // below this a thread costs more than it saves
    const std::size_t middle = count >= parallelFrom ? count / 2 : count;
    std::thread helper;
    if (middle < count) {
        try {
            helper = std::thread([&] { work(middle, count, 1); });
        } catch (const std::system_error &) {
            // No thread to be had: both halves run here.
        }
    }
    work(0, middle, 0);
    if (helper.joinable())
        helper.join();
    else if (middle < count)
        work(middle, count, 1);
}

// One half's outcome of reading facts.
struct StatOutcome {
    std::optional<PosixError> error;
    bool cancelled = false;
};

void statItems(int folderFd, const std::filesystem::path &folder, const ReadNames &items, std::size_t begin,
               std::size_t end, const std::atomic<bool> &cancelled, std::vector<Facts> &facts,
               StatOutcome &outcome)
{
    try {
        struct stat st;
        for (std::size_t i = begin; i < end; ++i) {
            if (cancelled.load(std::memory_order_relaxed)) {
                outcome.cancelled = true;
                return;
            }
            if (readFacts(folderFd, items.name(i), items.types[i], folder, st))
                facts[i] = factsOf(st);
        }
    } catch (const PosixError &error) {
        outcome.error = error;
    }
}

// Whether every entry was listed from folder, sharing one folder object as the
// entries of one listing do. Anything else is not a listing to compare with.
bool isListingOf(const std::vector<FileEntry> &entries, const std::filesystem::path &folder)
{
    if (entries.empty())
        return true;
    const FileEntry::Folder &shared = entries.front().sharedFolder();
    return shared && shared->native() == folder.native() &&
           std::all_of(entries.begin(), entries.end(),
                       [&](const FileEntry &entry) { return entry.sharedFolder() == shared; });
}

// Whether the items are exactly the entries the pane holds: same names, same
// facts. Decided with the pane's url index, without building any path.
bool matchesPrevious(const std::filesystem::path &folder, const ReadNames &items,
                     const std::vector<Facts> &facts, const std::vector<FileEntry> &previous,
                     const UrlIndex &index)
{
    const auto present = std::count_if(facts.begin(), facts.end(), [](const Facts &f) { return f.present; });
    if (static_cast<std::size_t>(present) != previous.size() || !isListingOf(previous, folder))
        return false;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!facts[i].present)
            continue;
        const std::optional<int> position = index.findName(previous, items.view(i));
        if (!position)
            return false;
        const FileEntry &entry = previous[static_cast<std::size_t>(*position)];
        if (entry.directory != facts[i].directory || entry.size != facts[i].size ||
            entry.modified != facts[i].modified)
            return false;
    }
    return true;
}

// Half of a listing being built: entries with their collation keys, and the
// order of those entries (folders first, then by key).
struct Part {
    std::vector<FileEntry> entries;
    std::string keys; // packed; entry i's key ends at keyEnds[i]
    std::vector<std::uint32_t> keyEnds;
    std::vector<std::uint32_t> order;

    std::string_view key(std::uint32_t i) const
    {
        const std::uint32_t begin = i == 0 ? 0 : keyEnds[i - 1];
        return std::string_view(keys).substr(begin, keyEnds[i] - begin);
    }
};

void buildPart(const FileEntry::Folder &folder, const ReadNames &items, const std::vector<Facts> &facts,
               std::size_t begin, std::size_t end, Part &part)
{
    const Collation collation;
    part.entries.reserve(end - begin);
    part.keyEnds.reserve(end - begin);
    part.keys.reserve((end - begin) * 24);
    for (std::size_t i = begin; i < end; ++i) {
        if (!facts[i].present)
            continue;
        part.entries.emplace_back(folder, std::string(items.view(i)), facts[i].directory, facts[i].size,
                                  facts[i].modified);
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
        listing.names.append(listing.entries.back().nameBytes());
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
                                        const std::atomic<bool> &cancelled, const PreviousListing *previous)
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

        std::vector<Facts> facts(items.size());
        StatOutcome stats[2];
        inTwoHalves(items.size(), [&](std::size_t begin, std::size_t end, int half) {
            statItems(fd, folder, items, begin, end, cancelled, facts, stats[half]);
        });
        if (stats[0].cancelled || stats[1].cancelled || cancelled.load(std::memory_order_relaxed))
            return std::nullopt;
        if (stats[0].error || stats[1].error)
            throw stats[0].error ? *stats[0].error : *stats[1].error;
        if (previous && matchesPrevious(folder, items, facts, previous->entries, previous->index)) {
            FolderListing unchanged;
            unchanged.unchanged = true;
            return ListingResult(std::move(unchanged));
        }

        const auto shared = std::make_shared<const std::filesystem::path>(folder);
        Part parts[2];
        inTwoHalves(items.size(), [&](std::size_t begin, std::size_t end, int half) {
            buildPart(shared, items, facts, begin, end, parts[half]);
        });
        FolderListing listing = merge(parts[0], parts[1]);
        listing.index = UrlIndex(listing.entries);
        return ListingResult(std::move(listing));
    } catch (const PosixError &error) {
        return ListingResult(failure(error, folder));
    }
}

} // namespace quillorn::detail
