#pragma once

#include "platform/posix/filedescriptor.h"

#include <string>

#include <sys/types.h>

namespace quillorn {

// A new file in the folder open as folder that has no name yet (O_TMPFILE): no
// other program can see it, and should the program die before it is named the
// volume frees it on its own, so there is nothing to clear away afterwards.
// Returns an invalid descriptor where the volume cannot make one (FUSE, network
// shares, FAT) or /proc is not mounted to name it through; errno then tells why.
FileDescriptor createUnnamedFile(int folder, mode_t mode);

// Gives the unnamed file open as descriptor the name name in folder, never
// replacing an item there: a name that is taken fails with EEXIST, atomically.
// Returns 0 or the errno.
int nameUnnamedFile(int descriptor, int folder, const std::string &name);

} // namespace quillorn
