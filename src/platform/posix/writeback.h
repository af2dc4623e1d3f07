#pragma once

namespace quillorn {

// Whether one syncfs(2) of the volume that holds the open folder makes every file
// written there durable and reports any of their write-back errors. True for local
// file systems the kernel writes back itself (Linux 5.8 and later report such
// errors to syncfs). False for FUSE, whose daemon hears only a per-file fsync, and
// for network file systems, whose servers are reached through each file's flush:
// there every file must be flushed on its own. False when the volume cannot be
// examined.
bool volumeFlushCoversFiles(int folderDescriptor);

} // namespace quillorn
