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

std::string_view nameOf(const FileEntry &entry)
{
    const std::string &url = entry.url.native();
    return std::string_view(url).substr(url.rfind('/') + 1);
}

// Case-insensitive order of a against b by key: negative, zero or positive.
int compareByKey(const FileEntry &a, const FileEntry &b, std::uint32_t rankA, std::uint32_t rankB, FileSort sort)
{
    if (sort == FileSort::size && a.size != b.size)
        return a.size < b.size ? -1 : 1;
    if (sort == FileSort::modified && a.modified != b.modified)
        return a.modified < b.modified ? -1 : 1;
    return rankA < rankB ? -1 : (rankA > rankB ? 1 : 0);
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

bool contains(std::string_view name, const Needle &needle)
{
    // Case folding of pure ASCII text is ASCII lower-casing; anything else
    // (a Kelvin sign folds to "k") goes through QString.
    if (needle.ascii && isAscii(name)) {
        const auto found = std::search(name.begin(), name.end(), needle.bytes.begin(), needle.bytes.end(),
                                       [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
        return found != name.end();
    }
    return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()))
        .contains(needle.text, Qt::CaseInsensitive);
}

} // namespace

bool nameContains(std::string_view name, const QString &filter)
{
    return filter.isEmpty() || contains(name, Needle(filter));
}

VisibleOrder visibleOrder(const std::vector<FileEntry> &entries, const std::vector<std::uint32_t> &nameRanks,
                          const QString &filter, FileSort sort, bool ascending)
{
    std::vector<std::uint32_t> kept;
    kept.reserve(entries.size());
    if (filter.isEmpty()) {
        kept.resize(entries.size());
        std::iota(kept.begin(), kept.end(), 0u);
    } else {
        const Needle needle(filter);
        for (std::uint32_t i = 0; i < entries.size(); ++i)
            if (contains(nameOf(entries[i]), needle))
                kept.push_back(i);
    }

    const auto goesFirst = [&](std::uint32_t a, std::uint32_t b) {
        const FileEntry &x = entries[a];
        const FileEntry &y = entries[b];
        if (x.directory != y.directory)
            return x.directory;
        const int order = compareByKey(x, y, nameRanks[a], nameRanks[b], sort);
        return ascending ? order < 0 : order > 0;
    };
    // Listings arrive in folders-first name order, so the common view needs no sort.
    VisibleOrder result;
    if (!std::is_sorted(kept.begin(), kept.end(), goesFirst))
        std::stable_sort(kept.begin(), kept.end(), goesFirst);
    else if (kept.size() == entries.size())
        result.identity = true;
    if (!result.identity)
        result.order = std::move(kept);
    return result;
}

} // namespace quillorn::detail
