#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace quillorn {

// One item of a pane's listing: the facts a pane needs to draw, sort, filter and
// act on a row. Made on the listing thread, read on the interface thread.
struct FileEntry {
    using Time = std::chrono::system_clock::time_point;

    std::filesystem::path url;  // the listed folder with the item's name appended
    bool directory = false;     // a folder, or a symbolic link to one
    std::int64_t size = 0;      // 0 for folders
    Time modified = distantPast();

    static constexpr Time distantPast() { return Time::min(); }

    std::filesystem::path name() const { return url.filename(); }
    const std::filesystem::path &id() const { return url; }

    friend bool operator==(const FileEntry &, const FileEntry &) = default;
};

} // namespace quillorn
