#pragma once

#include <QString>
#include <QStringList>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

// One hit of a search. Identified by its path.
struct SearchResult {
    std::filesystem::path url; // under the resolved search root, real bytes
    std::string relativePath;  // from the root, components joined by "/"
    // A search inside files: the first line that holds the text, counted from
    // 1, and that line's bytes (a long one cut around the match); 0 and none
    // for a hit by name only.
    std::int64_t lineNumber = 0;
    std::string line;
    friend bool operator==(const SearchResult &, const SearchResult &) = default;
};

// What a search looks for inside files; without text it looks at names only.
struct ContentQuery {
    QString text;                   // as typed, matched as its UTF-8 bytes
    bool matchCase = false;         // else letters match in either case
    bool regularExpression = false; // Perl-compatible, matched within one line
    bool binaryFiles = false;       // else a file with a NUL in its first 8 KiB is left out
};

// The whole outcome of a search; empty when default-made.
struct SearchReport {
    std::vector<SearchResult> items; // in the order the walk met them
    QStringList warnings;            // "name: reason", one per unreadable item, in order
    bool truncated = false;          // the search stopped at the result limit

    static constexpr std::size_t limit = 10'000;
};

} // namespace quillorn
