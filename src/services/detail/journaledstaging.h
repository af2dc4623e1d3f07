#pragma once

#include "operations/stagingjournal.h"
#include "platform/posix/filecontents.h"

namespace quillorn::detail {

// The process's staging journal as the watch of a file write, so that a hidden
// file an editor save or an extraction leaves when killed goes at the next start.
inline StagingWatch journaledStaging()
{
    return {[](const std::filesystem::path &staging, const std::filesystem::path &target) {
                StagingJournal::shared().add(staging, target);
            },
            [](const std::filesystem::path &staging) { StagingJournal::shared().remove(staging); }};
}

} // namespace quillorn::detail
