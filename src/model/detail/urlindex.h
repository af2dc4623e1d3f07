#pragma once

#include "model/fileentry.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace quillorn::detail {

// Finds an entry's position in a list by its url in O(1): an open-addressing
// table of positions (eight bytes per entry), so a pane with 100,000 items does
// not pay for a node-based map. Valid only for the list it was built from.
class UrlIndex {
public:
    UrlIndex() = default;
    explicit UrlIndex(const std::vector<FileEntry> &entries);

    std::optional<int> find(const std::vector<FileEntry> &entries, const std::filesystem::path &url) const;
    // The same for a path's bytes.
    std::optional<int> find(const std::vector<FileEntry> &entries, std::string_view url) const;

private:
    std::vector<std::int32_t> m_slots; // -1 for empty
    std::size_t m_mask = 0;
};

} // namespace quillorn::detail
