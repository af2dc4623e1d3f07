#include "platform/posix/stagingname.h"

#include "platform/posix/posixerror.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <sys/random.h>

namespace quillorn {

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

bool isStagingPath(const std::filesystem::path &path)
{
    const std::string name = path.filename().native();
    constexpr std::string_view prefix = ".quillorn-";
    if (!path.is_absolute() || path != path.lexically_normal() || name.size() != prefix.size() + 36 ||
        name.compare(0, prefix.size(), prefix) != 0)
        return false;
    for (std::size_t i = 0; i < 36; ++i) {
        const char c = name[prefix.size() + i];
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? c != '-' : !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')))
            return false;
    }
    return true;
}

} // namespace quillorn
