#pragma once

#include <cstdint>

#include <sys/types.h>

namespace quillorn {

// Whether one syncfs(2) of the volume that holds the open folder makes every file
// written there durable and reports any of their write-back errors. True for local
// file systems the kernel writes back itself (Linux 5.8 and later report such
// errors to syncfs). False for FUSE, whose daemon hears only a per-file fsync, and
// for network file systems, whose servers are reached through each file's flush:
// there every file must be flushed on its own. False when the volume cannot be
// examined.
bool volumeFlushCoversFiles(int folderDescriptor);

// Bytes of file data the kernel has yet to write back, on every volume together
// (the kernel tells no volume's share without debugfs). A volume flush waits for
// all of that volume's share, however much other programs wrote; so this is what
// it may cost at most. 0 when it cannot be read.
std::uint64_t pendingWriteBack();

// sync_file_range(2): starts writing the range back without waiting, so a file's
// data is on its way while the next one is copied. Returns 0 or the errno.
int startWriteBack(int fileDescriptor, off_t offset, off_t length);

// Writes the range back and waits until it is written. An error it returns is
// consumed for this descriptor (a later fsync of it no longer reports it), so the
// caller must treat it as the failure of the file's flush. Returns 0 or the errno.
int awaitWriteBack(int fileDescriptor, off_t offset, off_t length);

} // namespace quillorn
