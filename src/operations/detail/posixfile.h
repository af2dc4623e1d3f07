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

// lstat(2); throws PosixError.
struct stat itemAttributes(const std::filesystem::path &item);

// Every entry of a folder except "." and "..", hidden ones included, in the
// order the file system lists them; throws PosixError.
std::vector<std::filesystem::path> folderEntries(const std::filesystem::path &folder);

// Opens a folder for flushing it after an entry was renamed into it; throws PosixError.
FileDescriptor openFolder(const std::filesystem::path &folder);

// The text of a symbolic link, read whole even if it grew since lstat; throws PosixError.
std::string linkText(const std::filesystem::path &link, const struct stat &attributes);

// rename(2) that refuses to replace an existing item (RENAME_NOREPLACE, or a check
// first where the file system cannot refuse); throws PosixError.
void renameWithoutReplacing(const std::filesystem::path &from, const std::filesystem::path &to);

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
