#pragma once

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace quillorn {

// A failed system call on one item: errno in the generic (POSIX) category plus
// the path it concerned, so the log can name the item ("... path=/x/y").
// what() is "<path>: <strerror>"; the user-facing text is code().message().
class PosixError : public std::system_error {
public:
    PosixError(int code, std::filesystem::path path)
        : std::system_error(code, std::generic_category(), path.string()), m_path(std::move(path))
    {
    }

    const std::filesystem::path &path() const noexcept { return m_path; }

private:
    std::filesystem::path m_path;
};

// Throws PosixError for the current errno; for call sites like
// `if (::rename(a, b) != 0) throwPosixError(a);`
[[noreturn]] inline void throwPosixError(const std::filesystem::path &path, int code = errno)
{
    throw PosixError(code, path);
}

} // namespace quillorn
