#pragma once

#include <QString>
#include <QStringList>
#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

// One hit of a name search. Identified by its path.
struct SearchResult {
    std::filesystem::path url; // under the resolved search root, real bytes
    std::string relativePath;  // from the root, components joined by "/"
    friend bool operator==(const SearchResult &, const SearchResult &) = default;
};

// The whole outcome of a name search; empty when default-made.
struct SearchReport {
    std::vector<SearchResult> items; // in the order the walk met them
    QStringList warnings;            // "name: reason", one per unreadable item, in order
    bool truncated = false;          // the search stopped at the result limit

    static constexpr std::size_t limit = 10'000;
};

} // namespace quillorn
