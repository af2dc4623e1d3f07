#pragma once

#include "operations/operationcontrol.h"
#include "services/queuejob.h"

#include <filesystem>
#include <vector>

namespace quillorn::detail {

// The bodies of the Trash view's jobs. They run on the queue's background
// thread; their errors become the queue row's "Failed: " text, and what was
// done before an error stays done.

// Puts the items back one by one (RestoreFromTrashJob) and returns where each
// is now. Run again after a crash (resumed), an item no longer in the Trash
// was put back by the run the crash cut short: only its info, if left, goes.
std::vector<std::filesystem::path> restoreFromTrash(const RestoreFromTrashJob &job, OperationControl &control,
                                                    bool resumed);

// Removes the items for good (EraseFromTrashJob). An item already gone is not
// an error: run again after a crash, the job removes what is left of each.
void eraseFromTrash(const EraseFromTrashJob &job, OperationControl &control);

} // namespace quillorn::detail
