#include "platform/posix/hugepages.h"

#include <cstdint>
#include <sys/mman.h>

namespace quillorn {

void adviseHugePages(void *data, std::size_t bytes) noexcept
{
#ifdef MADV_HUGEPAGE
    constexpr std::uintptr_t huge = std::uintptr_t(2) << 20;
    const auto start = (reinterpret_cast<std::uintptr_t>(data) + huge - 1) & ~(huge - 1);
    const auto end = (reinterpret_cast<std::uintptr_t>(data) + bytes) & ~(huge - 1);
    if (end > start)
        ::madvise(reinterpret_cast<void *>(start), end - start, MADV_HUGEPAGE); // advice: failing is harmless
#else
    (void)data;
    (void)bytes;
#endif
}

} // namespace quillorn
