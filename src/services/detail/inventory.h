#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quillorn {

class OperationControl;

namespace detail {

// Every item below one root of a comparison, sorted by its key: the relative
// path with each component in its canonical form (see appendCanonicalName).
// When two items share a key the one met later wins. Kept as one block of text
// and 16 bytes per item, so a million items stay far below 200 MiB.
class Inventory {
public:
    // Throws CommanderError "Cannot enumerate <root>" when the root cannot be
    // opened, the platform's error for the first item that cannot be read,
    // CancellationError.
    static Inventory of(const std::filesystem::path &resolvedRoot, OperationControl &control);

    std::size_t size() const { return m_items.size(); }
    std::string_view key(std::size_t index) const;
    // The item's real path: the root joined with the relative path's own bytes.
    std::filesystem::path url(std::size_t index) const;

private:
    static constexpr std::uint32_t sameAsKey = UINT32_MAX;
    struct Item {
        std::uint64_t offset;
        std::uint32_t keyLength;
        std::uint32_t pathLength; // sameAsKey when the relative path is the key
    };
    class Builder;

    void sortAndKeepLast();

    std::filesystem::path m_root;
    std::string m_text;
    std::vector<Item> m_items;
};

} // namespace detail
} // namespace quillorn
