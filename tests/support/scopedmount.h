#pragma once

#include <filesystem>
#include <string>

namespace quillorn::test {

// A file system mounted on a folder for the length of one test and always
// unmounted afterwards (lazily when something still holds it open). Needs root.
class ScopedMount {
public:
    // mount(2) of a kernel file system: ScopedMount("tmpfs", dir, "size=4m").
    ScopedMount(const std::string &type, const std::filesystem::path &where, const std::string &options = {},
                unsigned long flags = 0);
    // The folder source seen a second time at where (a bind mount).
    static ScopedMount bind(const std::filesystem::path &source, const std::filesystem::path &where);
    // A command that mounts on where (bindfs, ...); the command's exit code decides.
    static ScopedMount byCommand(const std::string &command, const std::filesystem::path &where);
    // A fresh 16 MiB FAT image at image, mounted on where through fusefat; throws,
    // saying which package is missing, where the tools are not installed.
    static ScopedMount fat(const std::filesystem::path &image, const std::filesystem::path &where);
    ~ScopedMount();
    ScopedMount(ScopedMount &&other) noexcept;
    ScopedMount(const ScopedMount &) = delete;
    ScopedMount &operator=(const ScopedMount &) = delete;
    ScopedMount &operator=(ScopedMount &&) = delete;

    const std::filesystem::path &path() const { return m_where; }
    // Remounts read-only in place.
    void makeReadOnly();

private:
    explicit ScopedMount(std::filesystem::path where) : m_where(std::move(where)) {}
    std::filesystem::path m_where;
};

// Runs a shell command and returns its standard output; exit status in *status.
std::string runCommand(const std::string &command, int *status = nullptr);

// Quotes text for /bin/sh.
std::string shellQuote(const std::string &text);

} // namespace quillorn::test
