#include "platform/posix/percentencoding.h"

namespace quillorn {

std::string percentEncoded(const std::string &bytes)
{
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7F && byte != '%') {
            text.push_back(c);
        } else {
            text.push_back('%');
            text.push_back(hex[byte >> 4]);
            text.push_back(hex[byte & 15]);
        }
    }
    return text;
}

std::optional<std::string> percentDecoded(const std::string &text)
{
    const auto digit = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    };
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte <= 0x20 || byte >= 0x7F)
            return std::nullopt;
        if (text[i] != '%') {
            bytes.push_back(text[i]);
            continue;
        }
        if (i + 2 >= text.size())
            return std::nullopt;
        const int high = digit(text[i + 1]), low = digit(text[i + 2]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return bytes;
}

} // namespace quillorn
