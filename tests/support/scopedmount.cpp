#include "scopedmount.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/wait.h>
#include <system_error>

namespace quillorn::test {

ScopedMount::ScopedMount(const std::string &type, const std::filesystem::path &where,
                         const std::string &options, unsigned long flags)
    : m_where(where)
{
    if (::mount(type.c_str(), where.c_str(), type.c_str(), flags,
                options.empty() ? nullptr : options.c_str()) != 0)
        throw std::system_error(errno, std::generic_category(), "mount " + type + " on " + where.string());
}

ScopedMount ScopedMount::bind(const std::filesystem::path &source, const std::filesystem::path &where)
{
    if (::mount(source.c_str(), where.c_str(), nullptr, MS_BIND, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(),
                                "bind " + source.string() + " on " + where.string());
    return ScopedMount(where);
}

ScopedMount ScopedMount::byCommand(const std::string &command, const std::filesystem::path &where)
{
    int status = 0;
    const std::string output = runCommand(command + " 2>&1", &status);
    if (status != 0)
        throw std::runtime_error("'" + command + "' failed: " + output);
    return ScopedMount(where);
}

ScopedMount ScopedMount::fat(const std::filesystem::path &image, const std::filesystem::path &where)
{
    if (runCommand("PATH=$PATH:/usr/sbin:/sbin; command -v fusefat && command -v mkfs.vfat && echo yes")
            .find("yes") == std::string::npos)
        throw std::runtime_error("fusefat or mkfs.vfat is not installed (packages fusefat, dosfstools)");
    runCommand("truncate -s 16M " + shellQuote(image) + " && PATH=$PATH:/usr/sbin:/sbin mkfs.vfat " +
               shellQuote(image));
    return byCommand("fusefat -o rw+ " + shellQuote(image) + " " + shellQuote(where), where);
}

ScopedMount::ScopedMount(ScopedMount &&other) noexcept : m_where(std::move(other.m_where))
{
    other.m_where.clear();
}

ScopedMount::~ScopedMount()
{
    if (m_where.empty())
        return;
    if (::umount2(m_where.c_str(), 0) != 0)
        ::umount2(m_where.c_str(), MNT_DETACH);
}

void ScopedMount::makeReadOnly()
{
    if (::mount(nullptr, m_where.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(), "remount read-only " + m_where.string());
}

std::string runCommand(const std::string &command, int *status)
{
    FILE *pipe = ::popen(command.c_str(), "r");
    if (!pipe)
        throw std::system_error(errno, std::generic_category(), "popen " + command);
    std::string output;
    std::array<char, 4096> buffer{};
    std::size_t read = 0;
    while ((read = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        output.append(buffer.data(), read);
    const int result = ::pclose(pipe);
    if (status)
        *status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    return output;
}

std::string shellQuote(const std::string &text)
{
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

} // namespace quillorn::test
