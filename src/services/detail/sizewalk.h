#pragma once

#include "services/foldersize.h"

#include <chrono>
#include <filesystem>
#include <vector>

namespace quillorn {

class OperationControl;

namespace detail {

// The count behind DirectoryTools::folderSizes. Each folder asked for is a task
// to start with; a worker walking a task hands the sub-folders it meets over to
// the queue while the queue holds fewer tasks than there are workers, so the
// cores share even a single deep folder and no worker waits for long. Files with
// more than one link are remembered per folder asked for (device and inode) and
// counted where they are met first. Totals are kept in atomics that the walkers
// add to every few entries; the running totals reported are read from them.
class SizeWalk {
public:
    static std::vector<FolderSize> run(const std::vector<std::filesystem::path> &folders,
                                       OperationControl &control, const FolderSizeProgress &progress,
                                       std::chrono::milliseconds interval);
};

} // namespace detail
} // namespace quillorn
