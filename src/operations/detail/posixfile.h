#pragma once

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

// lstat(2); throws PosixError.
struct stat itemAttributes(const std::filesystem::path &item);

// Every entry of a folder except "." and "..", hidden ones included, in the
// order the file system lists them; throws PosixError.
std::vector<std::filesystem::path> folderEntries(const std::filesystem::path &folder);

// Opens a folder for flushing it after an entry was renamed into it; throws PosixError.
FileDescriptor openFolder(const std::filesystem::path &folder);

// ".quillorn-" + a random version-4 UUID in upper case.
std::string stagingName();

} // namespace quillorn::detail
