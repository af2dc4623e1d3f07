#pragma once

#include "model/detail/packednames.h"
#include "model/fileentry.h"
#include "model/filesort.h"

#include <QString>
#include <cstdint>
#include <string_view>
#include <vector>

namespace quillorn::detail {

// Whether a name (bytes, possibly not UTF-8) contains filter, ignoring case as
// QString::contains(..., Qt::CaseInsensitive) does.
bool nameContains(std::string_view name, const QString &filter);

// Which entries a pane shows, in which order, as positions into entries.
struct VisibleOrder {
    std::vector<std::uint32_t> order;
    bool identity = false; // every entry, in listing order (order is then left empty)
};

// The entries whose name contains filter (all when it is empty), folders first
// in both directions, then by key; names break ties of size and date, and the
// direction reverses the tie-break too. Equal entries keep their listing order.
// nameRanks come from the listing and stand in for collation, so ordering
// never calls the collator.
VisibleOrder visibleOrder(const std::vector<FileEntry> &entries, const std::vector<std::uint32_t> &nameRanks,
                          const PackedNames &names, const QString &filter, FileSort sort, bool ascending);

} // namespace quillorn::detail
