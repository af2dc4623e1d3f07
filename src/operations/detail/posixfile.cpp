#include "operations/detail/posixfile.h"

#include "platform/posix/posixerror.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

namespace fs = std::filesystem;

namespace quillorn::detail {

FileDescriptor &FileDescriptor::operator=(FileDescriptor &&other) noexcept
{
    if (this != &other) {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = other.release();
    }
    return *this;
}

FileDescriptor::~FileDescriptor()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

int FileDescriptor::release()
{
    const int descriptor = m_descriptor;
    m_descriptor = -1;
    return descriptor;
}

struct stat itemAttributes(const fs::path &item)
{
    struct stat attributes {};
    if (::lstat(item.c_str(), &attributes) != 0)
        throwPosixError(item, errno);
    return attributes;
}

std::vector<fs::path> folderEntries(const fs::path &folder)
{
    std::unique_ptr<DIR, int (*)(DIR *)> stream(::opendir(folder.c_str()), ::closedir);
    if (!stream)
        throwPosixError(folder, errno);
    std::vector<fs::path> entries;
    for (;;) {
        errno = 0;
        const dirent *entry = ::readdir(stream.get());
        if (!entry) {
            if (errno != 0)
                throwPosixError(folder, errno);
            return entries;
        }
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            entries.push_back(folder / entry->d_name);
    }
}

FileDescriptor openFolder(const fs::path &folder)
{
    FileDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor)
        throwPosixError(folder, errno);
    return descriptor;
}

std::string stagingName()
{
    std::array<std::uint8_t, 16> bytes{};
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throwPosixError("/dev/urandom", errno);
        filled += static_cast<std::size_t>(count);
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // RFC 4122 variant
    static const char digits[] = "0123456789ABCDEF";
    std::string text = ".quillorn-";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0x0F];
    }
    return text;
}

} // namespace quillorn::detail
