#pragma once

#include "operations/savebackupjournal.h"
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

// The process's save backup journal as the watch of an in-place write, so that
// a save a killed process left half written gets its old bytes back at the next start.
inline BackupWatch journaledBackups()
{
    return SaveBackupJournal::shared().watch();
}

} // namespace quillorn::detail
