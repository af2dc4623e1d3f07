#pragma once

#include <cstddef>

namespace quillorn {

// Asks the kernel to back a large buffer with huge pages before it is first
// written: filling 16 MiB then takes a few page faults instead of 4,096, which
// on a virtual machine is the most of opening a large file. Only the 2 MiB
// stretches wholly inside the buffer are advised; elsewhere, or where the
// system has no huge pages, nothing changes.
void adviseHugePages(void *data, std::size_t bytes) noexcept;

} // namespace quillorn
