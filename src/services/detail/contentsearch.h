#pragma once

#include "services/searchreport.h"

#include <QString>
#include <filesystem>

namespace quillorn {

class OperationControl;

namespace detail {

// The search inside files of one tree. One descriptor walk lists the tree in
// order and hands the regular files whose names fit, a folder's worth at a
// time with that folder's descriptor, to one reader per core; each reader
// holds one chunk-sized buffer and reads a file through it chunk by chunk,
// overlapping the chunks so that a match across their border is found.
// The outcome is that of reading the files one after the other in walk order:
// hits and warnings in that order, cut at the limit. Once the limit is
// reached no new batch is taken and those already taken are finished, so
// what was read is a prefix of the walk and the first hits are the same.
class ContentSearch {
public:
    static constexpr std::size_t chunk = 128 * 1024;
    static constexpr std::size_t binaryProbe = 8 * 1024;

    // Names are matched as the name search does when `nameQuery` is not blank
    // (else every file counts). Throws CommanderError "Cannot search this
    // folder." when the root cannot be opened, or the matcher's sentence for
    // a text it cannot search for; CancellationError.
    static SearchReport run(const std::filesystem::path &resolvedRoot, const QString &nameQuery, bool hidden,
                            const ContentQuery &contents, OperationControl &control);
};

} // namespace detail
} // namespace quillorn
