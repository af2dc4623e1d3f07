#pragma once

#include "services/foldersize.h"
#include "services/searchreport.h"

#include <QString>
#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace quillorn {

class OperationControl;

// The recursive search (by name, or inside files) and the recursive folder comparison: stateless,
// synchronous operations meant for a background thread, polling their
// OperationControl for cancellation. Neither ever follows a symbolic link into
// another tree; both start from the root with its links resolved, so a root
// given through a link is worked on at its real location.
class DirectoryTools {
public:
    using Path = std::filesystem::path;
    using Digest = std::array<unsigned char, 32>;

    DirectoryTools() = delete;

    // Every item below `root` whose name contains `query`, ignoring case (a name
    // that is not valid UTF-8 is matched on its text with U+FFFD for the invalid
    // bytes). A query blank after trimming finds nothing at once; matching uses
    // the query as typed. Hidden items (and all below a hidden folder) count
    // only with `hidden`. Folders that cannot be read become warnings. Stops at
    // SearchReport::limit hits with `truncated`. Throws CommanderError "Cannot
    // search this folder." when the root cannot be opened, CancellationError.
    static SearchReport search(const Path &root, const QString &query, bool hidden,
                               OperationControl &control);
    // With a text in `contents`: the regular files below `root` whose bytes hold
    // it (and whose names contain `query`, unless that is blank), each with its
    // first matching line; links are never read. Files are read on all cores,
    // one chunk per file at a time, and reported in walk order, as the name
    // search's hits are. A file that cannot be read is a warning too. Throws
    // CommanderError for an expression that is not valid as well.
    static SearchReport search(const Path &root, const QString &query, bool hidden,
                               const ContentQuery &contents, OperationControl &control);

    // One row per difference between the two trees, sorted by relative path:
    // "RIGHT ONLY  ", "LEFT ONLY   ", "TYPE DIFF   ", "LINK DIFF   " or
    // "CONTENT DIFF " followed by the path. Names are keyed by their NFC form
    // when valid UTF-8, by their bytes otherwise. Files are compared by size,
    // then SHA-256 (the two files of a pair at once); links by their target
    // text; other items by kind only. All rows or an error: the first folder
    // that cannot be read ends the comparison with the platform's error.
    static std::vector<std::string> comparison(const Path &left, const Path &right,
                                               OperationControl &control);

    // Each folder's size, in the order given, on all cores. Links below a folder
    // are counted as links and never followed (a folder given through a link is
    // counted where it leads), mount points below it are left out whole, and a
    // folder that cannot be read makes its total partial. `progress` hears the
    // running totals from a worker thread, at most once per `interval`; the
    // totals it hears are never more than the final ones. Throws CancellationError.
    static std::vector<FolderSize>
    folderSizes(const std::vector<Path> &folders, OperationControl &control,
                const FolderSizeProgress &progress = {},
                std::chrono::milliseconds interval = std::chrono::milliseconds(250));

    // SHA-256 of a file's contents, read in 1 MiB chunks; the control is
    // checked and credited after every chunk. Throws PosixError.
    static Digest digest(const Path &file, OperationControl &control);

    // The root with every symbolic link in it replaced and "."/".." removed;
    // lexically normalised when it cannot be resolved.
    static Path resolvedRoot(const Path &root);

    static constexpr std::size_t digestChunk = 0x100000;
};

} // namespace quillorn
