#pragma once

#include "platform/posix/filedescriptor.h"

#include <filesystem>

namespace quillorn {

// Creates folder and whichever of its parents are missing with mode 0700, so only
// the user may look inside; folders that exist are left as they are.
// Throws PosixError naming the folder that could not be made.
void createPrivateFolders(const std::filesystem::path &folder);

// Opens folder for work relative to it (openat, renameat, fsync), creating it as
// createPrivateFolders does. The folder itself must be a real folder of this
// user, never a symbolic link to one (parents may be links the user made): a
// folder that is open to others is made private again.
// Throws PosixError (ELOOP or ENOTDIR for a link, EPERM for another user's folder).
FileDescriptor openPrivateFolder(const std::filesystem::path &folder);

} // namespace quillorn
