#include "model/detail/visiblelist.h"

#include <algorithm>
#include <numeric>

namespace quillorn::detail {

namespace {

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

char lowerAscii(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The filter in the two forms the test needs, converted once per recompute.
struct Needle {
    explicit Needle(const QString &text)
        : text(text), bytes(text.toUtf8()), ascii(isAscii(std::string_view(bytes.constData(), bytes.size())))
    {
    }
    const QString &text;
    QByteArray bytes;
    bool ascii;
};

// Whether name holds a character outside ASCII whose case folding is ASCII:
// KELVIN SIGN (to "k"), LATIN SMALL LETTER LONG S (to "s"), and, to be safe,
// LATIN CAPITAL LETTER I WITH DOT ABOVE.
bool foldsIntoAscii(std::string_view name)
{
    for (const std::string_view special : {"\xE2\x84\xAA", "\xC5\xBF", "\xC4\xB0"})
        if (name.find(special) != std::string_view::npos)
            return true;
    return false;
}

bool contains(std::string_view name, const Needle &needle)
{
    // For an ASCII filter, case folding is ASCII lower-casing, and bytes of
    // other characters (UTF-8 or not) can never match; only the few characters
    // that fold into ASCII need QString.
    if (needle.ascii && (isAscii(name) || !foldsIntoAscii(name))) {
        const auto found = std::search(name.begin(), name.end(), needle.bytes.begin(), needle.bytes.end(),
                                       [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
        return found != name.end();
    }
    return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()))
        .contains(needle.text, Qt::CaseInsensitive);
}

// kept is in listing order, that is ascending by name within folders and
// within files. Reverses each of the two groups, keeping names that collate
// equal in their listing order.
void reverseByName(std::vector<std::uint32_t> &kept, const std::vector<FileEntry> &entries,
                   const std::vector<std::uint32_t> &nameRanks)
{
    const auto filesBegin =
        std::partition_point(kept.begin(), kept.end(), [&](std::uint32_t i) { return entries[i].directory; });
    for (auto [begin, end] : {std::pair(kept.begin(), filesBegin), std::pair(filesBegin, kept.end())}) {
        std::reverse(begin, end);
        for (auto run = begin; run != end;) {
            const auto runEnd =
                std::find_if(run, end, [&](std::uint32_t i) { return nameRanks[i] != nameRanks[*run]; });
            std::reverse(run, runEnd);
            run = runEnd;
        }
    }
}

// Orders kept by size or date, then by name, the direction reversing both.
void orderByValue(std::vector<std::uint32_t> &kept, const std::vector<FileEntry> &entries,
                  const std::vector<std::uint32_t> &nameRanks, FileSort sort, bool ascending)
{
    // A compact copy of the keys: sorting touches these instead of the entries.
    struct Key {
        bool directory;
        std::int64_t value;
        std::uint32_t rank;
        std::uint32_t index;
    };
    std::vector<Key> keys;
    keys.reserve(kept.size());
    for (const std::uint32_t i : kept) {
        const FileEntry &entry = entries[i];
        const std::int64_t value = sort == FileSort::size
                                       ? entry.size
                                       : static_cast<std::int64_t>(entry.modified.time_since_epoch().count());
        keys.push_back({entry.directory, value, nameRanks[i], i});
    }
    std::stable_sort(keys.begin(), keys.end(), [ascending](const Key &a, const Key &b) {
        if (a.directory != b.directory)
            return a.directory;
        if (a.value != b.value)
            return ascending ? a.value < b.value : a.value > b.value;
        return ascending ? a.rank < b.rank : a.rank > b.rank;
    });
    for (std::size_t k = 0; k < keys.size(); ++k)
        kept[k] = keys[k].index;
}

} // namespace

bool nameContains(std::string_view name, const QString &filter)
{
    return filter.isEmpty() || contains(name, Needle(filter));
}

VisibleOrder visibleOrder(const std::vector<FileEntry> &entries, const std::vector<std::uint32_t> &nameRanks,
                          const PackedNames &names, const QString &filter, FileSort sort, bool ascending)
{
    std::vector<std::uint32_t> kept;
    kept.reserve(entries.size());
    if (filter.isEmpty()) {
        kept.resize(entries.size());
        std::iota(kept.begin(), kept.end(), 0u);
    } else {
        const Needle needle(filter);
        for (std::uint32_t i = 0; i < entries.size(); ++i)
            if (contains(names[i], needle))
                kept.push_back(i);
    }

    VisibleOrder result;
    if (sort == FileSort::name) {
        // Listings arrive in folders-first name order, so the common view needs no sort.
        if (!ascending)
            reverseByName(kept, entries, nameRanks);
        else if (kept.size() == entries.size())
            result.identity = true;
    } else {
        orderByValue(kept, entries, nameRanks, sort, ascending);
    }
    if (!result.identity)
        result.order = std::move(kept);
    return result;
}

} // namespace quillorn::detail
