#include "model/detail/urlindex.h"

#include <bit>
#include <functional>
#include <string_view>

namespace quillorn::detail {

namespace {

std::size_t hashOf(std::string_view url)
{
    return std::hash<std::string_view>{}(url);
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
        std::size_t slot = hashOf(entries[i].url.native()) & m_mask;
        while (m_slots[slot] >= 0)
            slot = (slot + 1) & m_mask;
        m_slots[slot] = static_cast<std::int32_t>(i);
    }
}

std::optional<int> UrlIndex::find(const std::vector<FileEntry> &entries,
                                  const std::filesystem::path &url) const
{
    return find(entries, std::string_view(url.native()));
}

std::optional<int> UrlIndex::find(const std::vector<FileEntry> &entries, std::string_view url) const
{
    if (m_slots.empty())
        return std::nullopt;
    for (std::size_t slot = hashOf(url) & m_mask;; slot = (slot + 1) & m_mask) {
        const std::int32_t position = m_slots[slot];
        if (position < 0)
            return std::nullopt;
        if (entries[static_cast<std::size_t>(position)].url.native() == url)
            return position;
    }
}

} // namespace quillorn::detail
