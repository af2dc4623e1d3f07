#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/posix/filedescriptor.h"

#include <sys/stat.h>

namespace quillorn::detail {

using FileDescriptor = quillorn::FileDescriptor;

// One step of a file copy: copy_file_range(2) where the kernel offers it between
// these two files, read(2)/write(2) otherwise; returns 0 only at the end of the source.
std::size_t copyFileRange(int input, int output, std::size_t limit, const std::filesystem::path &source,
                          const std::filesystem::path &target);

} // namespace quillorn::detail
