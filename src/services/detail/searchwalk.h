#pragma once

#include "services/searchreport.h"

#include <QString>
#include <filesystem>

namespace quillorn {

class OperationControl;

namespace detail {

// The name search of one tree with the outcome of a single depth-first walk
// (the same hits, warnings and cut at the limit, in the same order) but the
// reading spread over the cores: the top of the tree is listed first and split
// into folders still to walk, which workers take in order; their hits are put
// back in tree order. A part of the tree with the limit's worth of hits before
// it is never walked, and no part keeps more than the limit, so memory stays
// bounded by a few times the limit whatever the tree.
class SearchWalk {
public:
    // Throws CommanderError "Cannot search this folder." when the root cannot
    // be opened, CancellationError.
    static SearchReport run(const std::filesystem::path &resolvedRoot, const QString &query, bool hidden,
                            OperationControl &control);
};

} // namespace detail
} // namespace quillorn
