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
    UrlIndex index;
    // Set instead of the fields above when the folder still holds exactly the
    // entries the pane shows: nothing is built, compared or freed on the
    // interface thread, which is what keeps the periodic refresh cheap.
    bool unchanged = false;
};

// The listing a pane holds, for recognising an unchanged folder.
struct PreviousListing {
    const std::vector<FileEntry> &entries;
    const UrlIndex &index;
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
// With previous, a folder whose entries equal it gives an unchanged listing.
// Blocking; runs on a worker thread.
std::optional<ListingResult> listFolder(const std::filesystem::path &folder, bool showHidden,
                                        const std::atomic<bool> &cancelled,
                                        const PreviousListing *previous = nullptr);

} // namespace quillorn::detail
