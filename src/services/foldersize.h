#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace quillorn {

// How much a folder holds, counted as `du -sbx` counts: the apparent sizes of
// the folder itself and of every item below it on its volume, a file with
// several hard links once.
struct FolderSize {
    std::int64_t bytes = 0;
    // Something below could not be read: bytes is a lower bound.
    bool partial = false;
    friend bool operator==(const FolderSize &, const FolderSize &) = default;
};

// Hears a count's running totals, in the order of its folders, and which of
// the folders are counted to the end.
using FolderSizeProgress =
    std::function<void(const std::vector<FolderSize> &totals, const std::vector<bool> &finished)>;

} // namespace quillorn
