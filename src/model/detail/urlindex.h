#pragma once

#include "model/fileentry.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace quillorn::detail {

// Finds an entry's position in a list by its url in O(1): an open-addressing
// table of positions (eight bytes per entry), so a pane with 100,000 items does
// not pay for a node-based map. Keyed on names, which are unique within one
// listing, so neither building nor looking up makes a path. Valid only for the
// list it was built from.
class UrlIndex {
public:
    UrlIndex() = default;
    explicit UrlIndex(const std::vector<FileEntry> &entries);

    std::optional<int> find(const std::vector<FileEntry> &entries, const std::filesystem::path &url) const;
    // The entry of that name whatever its folder: for lists known to come from
    // a single folder.
    std::optional<int> findName(const std::vector<FileEntry> &entries, std::string_view name) const;

private:
    template <typename Matches>
    std::optional<int> probe(const std::vector<FileEntry> &entries, std::string_view name,
                             Matches matches) const;

    std::vector<std::int32_t> m_slots; // -1 for empty
    std::size_t m_mask = 0;
};

} // namespace quillorn::detail
