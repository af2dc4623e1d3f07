#pragma once

#include "model/detail/packednames.h"
#include "model/detail/urlindex.h"
#include "model/fileentry.h"

#include <QString>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <variant>
#include <vector>

namespace quillorn::detail {

// One folder's listing as the worker hands it to the pane: entries with folders
// first, then by name in collation order, plus what the interface thread needs
// to order and look them up without touching the collator again.
struct FolderListing {
    std::vector<FileEntry> entries;
    // Parallel to entries: the position of the entry's name in collation order;
    // names the collation holds equal share a rank, so ranks compare like names.
    std::vector<std::uint32_t> nameRanks;
    PackedNames names; // parallel to entries
    UrlIndex index;    // left to the caller: not needed when the listing is unchanged
    // Set instead of the fields above when the listing equals the one the pane
    // already holds, so the interface thread neither compares nor frees it.
    bool unchanged = false;
};

// The sentence a pane shows when a listing fails; keeps the system's own text.
struct ListingFailure {
    QString message;
};

using ListingResult = std::variant<FolderListing, ListingFailure>;

// Lists folder's immediate contents with readdir and fstatat (names are bytes;
// QDir would skip the ones that are not UTF-8). Names beginning with "." are
// left out unless showHidden. A symbolic link to a folder lists as a folder, a
// dangling one as a file. Returns nothing when cancelled was set meanwhile.
// Blocking; runs on a worker thread.
std::optional<ListingResult> listFolder(const std::filesystem::path &folder, bool showHidden,
                                        const std::atomic<bool> &cancelled);

// FileEntry equality, element by element, comparing path bytes (component-wise
// path comparison is many times slower and adds nothing for listed paths).
bool sameEntries(const std::vector<FileEntry> &a, const std::vector<FileEntry> &b);

} // namespace quillorn::detail
