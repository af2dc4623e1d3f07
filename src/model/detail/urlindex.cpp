#include "model/detail/urlindex.h"

#include <bit>
#include <functional>
#include <string_view>

namespace quillorn::detail {

namespace {

std::size_t hashOf(std::string_view name)
{
    return std::hash<std::string_view>{}(name);
}

// The bytes after the last separator: what FileEntry keeps as the name.
std::string_view lastComponent(std::string_view url)
{
    const std::size_t slash = url.rfind('/');
    return slash == std::string_view::npos ? url : url.substr(slash + 1);
}

} // namespace

UrlIndex::UrlIndex(const std::vector<FileEntry> &entries)
{
    if (entries.empty())
        return;
    const std::size_t capacity = std::bit_ceil(entries.size() * 2);
    m_slots.assign(capacity, -1);
    m_mask = capacity - 1;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        std::size_t slot = hashOf(entries[i].nameBytes()) & m_mask;
        while (m_slots[slot] >= 0)
            slot = (slot + 1) & m_mask;
        m_slots[slot] = static_cast<std::int32_t>(i);
    }
}

template <typename Matches>
std::optional<int> UrlIndex::probe(const std::vector<FileEntry> &entries, std::string_view name,
                                   Matches matches) const
{
    if (m_slots.empty())
        return std::nullopt;
    for (std::size_t slot = hashOf(name) & m_mask;; slot = (slot + 1) & m_mask) {
        const std::int32_t position = m_slots[slot];
        if (position < 0)
            return std::nullopt;
        if (matches(entries[static_cast<std::size_t>(position)]))
            return position;
    }
}

std::optional<int> UrlIndex::find(const std::vector<FileEntry> &entries,
                                  const std::filesystem::path &url) const
{
    const std::string_view bytes = url.native();
    return probe(entries, lastComponent(bytes), [&](const FileEntry &entry) { return entry.hasUrl(bytes); });
}

std::optional<int> UrlIndex::findName(const std::vector<FileEntry> &entries, std::string_view name) const
{
    return probe(entries, name, [&](const FileEntry &entry) { return entry.nameBytes() == name; });
}

} // namespace quillorn::detail
