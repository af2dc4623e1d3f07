#pragma once

#include "services/syncjob.h"

#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

class FileOperations;
class OperationControl;

namespace detail {

// A step of a synchronisation left undone, and why.
struct SyncSkip {
    std::filesystem::path item;
    std::string reason;
};

// Runs the steps in order through the engine: copies staged, verified and
// published under a name that must still be free; a replaced or trashed item
// leaves through the Trash, checked against its seal right before. A step
// whose items changed since the plan, or that fails, is skipped and the
// others go on. Run again after a crash (`rerun`), a step found done is
// passed over. With `remember`, the trees are remembered in `memoryFolder` at
// the end. Throws CancellationError.
std::vector<SyncSkip> runSync(const SyncJob &job, const FileOperations &operations, OperationControl &control,
                              bool rerun, const std::filesystem::path &memoryFolder);

} // namespace detail
} // namespace quillorn
