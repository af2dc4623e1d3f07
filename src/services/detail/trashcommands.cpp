#include "services/detail/trashcommands.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/removal.h"
#include "platform/posix/trash.h"
#include "platform/posix/trashcan.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace quillorn::detail {

namespace {

std::string quoted(const fs::path &path)
{
    return "\u2018" + path.filename().string() + "\u2019";
}

// Makes the folder and those above it that are missing, as the desktop does
// when it restores an item whose folder was deleted after it: otherwise the
// item could never leave the Trash except by hand.
void makeFolders(const fs::path &folder)
{
    struct stat info {};
    if (::stat(folder.c_str(), &info) == 0) {
        if (!S_ISDIR(info.st_mode))
            throwPosixError(folder, ENOTDIR);
        return;
    }
    if (errno != ENOENT || !folder.has_relative_path())
        throwPosixError(folder);
    makeFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST)
        throwPosixError(folder);
}

fs::path putBack(const fs::path &trashed, bool keepBoth)
{
    fs::path origin;
    try {
        origin = trashedItemOrigin(trashed);
    } catch (const std::exception &error) {
        throw CommanderError(quoted(trashed) +
                             " cannot be put back: " + AppDiagnostics::form(error).description + ".");
    }
    makeFolders(origin.parent_path());
    for (;;) {
        const fs::path target =
            keepBoth ? FileOperations::availableName(origin.filename().native(), origin.parent_path())
                     : origin;
        try {
            return restoreTrashedItem(trashed, target);
        } catch (const PosixError &error) {
            if (error.code().value() != EEXIST)
                throw;
            if (!keepBoth)
                throw CommanderError("An item named " + quoted(origin) + " already exists.");
            // Taken between the look and the rename: the next free name.
        }
    }
}

} // namespace

std::vector<fs::path> restoreFromTrash(const RestoreFromTrashJob &job, OperationControl &control,
                                       bool resumed)
{
    std::vector<fs::path> restored;
    for (const fs::path &trashed : job.items) {
        control.check();
        if (!FileOperations::exists(trashed)) {
            if (!resumed)
                throw CommanderError(quoted(trashed) + " is no longer in the Trash.");
            // Back already; the crash came before its info went.
            const fs::path trash = trashed.parent_path().parent_path();
            ::unlink((trash / "info" / (trashed.filename().native() + ".trashinfo")).c_str());
            continue;
        }
        control.detail("Putting back " + quoted(trashed));
        restored.push_back(putBack(trashed, job.keepBoth));
    }
    return restored;
}

void eraseFromTrash(const EraseFromTrashJob &job, OperationControl &control)
{
    for (const fs::path &trashed : job.items) {
        control.check();
        control.detail("Deleting " + quoted(trashed));
        try {
            eraseTrashedItem(trashed);
        } catch (const RemovalError &error) {
            throw CommanderError("Could not delete " + quoted(trashed) +
                                 " for good. The item still exists at " + error.path().string() + ". " +
                                 error.what());
        }
    }
}

} // namespace quillorn::detail
