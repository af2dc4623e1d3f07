#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace quillorn::detail {

// Owns one open descriptor; closing errors are ignored (data that must be
// durable is flushed explicitly before).
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    FileDescriptor(FileDescriptor &&other) noexcept : m_descriptor(other.release()) {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept;
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor();

    int get() const { return m_descriptor; }
    explicit operator bool() const { return m_descriptor >= 0; }
    int release();

private:
    int m_descriptor = -1;
};

// One step of a file copy: copy_file_range(2) where the kernel offers it between
// these two files, read(2)/write(2) otherwise; returns 0 only at the end of the source.
std::size_t copyFileRange(int input, int output, std::size_t limit, const std::filesystem::path &source,
                          const std::filesystem::path &target);

// Removes a staging item whatever it holds, errors ignored: it may be half
// written, read-only inside, or gone already.
void removeStaging(const std::filesystem::path &staging);

// ".quillorn-" + a random version-4 UUID in upper case.
std::string stagingName();

} // namespace quillorn::detail
