#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace quillorn {

// The key by which a pane orders its listing; the raw value is what is persisted
// and what the column header shows (upper-cased).
enum class FileSort { name, size, modified };

inline constexpr std::array<FileSort, 3> allFileSorts{FileSort::name, FileSort::size, FileSort::modified};

constexpr std::string_view rawValue(FileSort sort)
{
    switch (sort) {
    case FileSort::name:
        return "Name";
    case FileSort::size:
        return "Size";
    case FileSort::modified:
        return "Modified";
    }
    return "Name";
}

constexpr std::optional<FileSort> fileSortFromRawValue(std::string_view text)
{
    for (FileSort sort : allFileSorts)
        if (rawValue(sort) == text)
            return sort;
    return std::nullopt;
}

} // namespace quillorn
