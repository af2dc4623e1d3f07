#include "operations/fileoperations.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "platform/posix/removal.h"
#include "platform/posix/trash.h"
#include "platform/posix/volume.h"

// Getting rid of items: the Trash first, permanent removal only on volumes that
// are not local and only with the caller's permission.
namespace quillorn {

namespace {

std::string quoted(const std::string &name)
{
    return "\u2018" + name + "\u2019";
}

} // namespace

FileOperations::TrashService FileOperations::defaultTrash()
{
    return [](const Path &item) {
        // The line names a folder: escaped as every path in the log is.
        return trashItem(
            item, [](const std::string &line) { AppDiagnostics::shared().record(detail::logText(line)); });
    };
}

FileOperations::RemoveService FileOperations::defaultRemove()
{
    return [](const Path &item) { removeTree(item); };
}

FileOperations::VolumeIsLocalService FileOperations::defaultVolumeIsLocal()
{
    return [](const Path &item) { return volumeIsLocal(item); };
}

std::optional<FileOperations::Path> FileOperations::discard(const Path &url,
                                                            bool permanentlyIfRemoteTrashUnavailable) const
{
    AppDiagnostics &log = AppDiagnostics::shared();
    const std::string path = url.string();
    const std::string name = url.filename().string();
    if (!exists(url))
        throw CommanderError("The item no longer exists: " + path);
    // The Trash refuses a mount point, and removing one for good would empty the
    // volume behind it, so it is not even tried.
    if (isMountPoint(url))
        throw CommanderError(quoted(name) + " is the mount point of another volume. Quillorn does not remove "
                                            "mount points; unmount it first.");

    std::string trashReason;
    try {
        return m_trash(url);
    } catch (const std::exception &error) {
        log.record("TRASH FAILED path=" + detail::logPath(url) + " error=" + AppDiagnostics::describe(error));
        trashReason = AppDiagnostics::form(error).description;
    }
    if (!exists(url))
        return std::nullopt;
    if (permanentlyIfRemoteTrashUnavailable && !m_volumeIsLocal(url)) {
        try {
            m_remove(url);
            return std::nullopt;
        } catch (const std::exception &error) {
            log.record("REMOVE FAILED path=" + detail::logPath(url) +
                       " error=" + AppDiagnostics::describe(error));
            if (!exists(url))
                return std::nullopt;
            throw CommanderError("Could not permanently remove " + quoted(name) +
                                 " from the network share. The item still exists at " + path + ". " +
                                 AppDiagnostics::form(error).description);
        }
    }
    throw CommanderError("Could not move " + quoted(name) + " to Trash. The item still exists at " + path +
                         ". " + trashReason);
}

} // namespace quillorn
