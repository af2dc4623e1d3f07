#include "platform/posix/detail/trashinfo.h"

#include <cerrno>
#include <climits>
#include <unistd.h>

namespace quillorn::detail {

std::string percentEncode(std::string_view path)
{
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(path.size());
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                           (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' || byte == '_' ||
                           byte == '~' || byte == '/';
        if (plain) {
            out.push_back(c);
        } else {
            out.push_back('%');
            out.push_back(kHex[byte >> 4]);
            out.push_back(kHex[byte & 0x0F]);
        }
    }
    return out;
}

std::optional<std::string> percentDecode(std::string_view text)
{
    const auto digit = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        return -1;
    };
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            bytes.push_back(text[i]);
            continue;
        }
        const int high = i + 2 < text.size() ? digit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? digit(text[i + 2]) : -1;
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return bytes;
}

std::optional<std::string_view> trashInfoValue(std::string_view contents, std::string_view key)
{
    bool inGroup = false;
    while (!contents.empty()) {
        const std::size_t end = contents.find('\n');
        std::string_view line = contents.substr(0, end);
        contents.remove_prefix(end == std::string_view::npos ? contents.size() : end + 1);
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (line.starts_with('[')) {
            inGroup = line == "[Trash Info]";
            continue;
        }
        if (inGroup && line.size() > key.size() && line.starts_with(key) && line[key.size()] == '=')
            return line.substr(key.size() + 1);
    }
    return std::nullopt;
}

std::optional<std::string> trashInfoPath(std::string_view contents)
{
    const std::optional<std::string_view> value = trashInfoValue(contents, "Path");
    return value ? percentDecode(*value) : std::nullopt;
}

std::string trashInfoContents(std::string_view path, std::string_view deletionDate)
{
    std::string text = "[Trash Info]\nPath=";
    text += percentEncode(path);
    text += "\nDeletionDate=";
    text += deletionDate;
    text += '\n';
    return text;
}

std::string deletionDate(std::time_t when)
{
    std::tm local{};
    ::localtime_r(&when, &local);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return std::string(text, length);
}

std::string trashEntryName(const std::string &name, unsigned attempt)
{
    std::string suffix;
    if (attempt > 1) {
        // Built by appending: GCC 12 at -O3 warns falsely (-Wrestrict) on "." + std::string.
        suffix = ".";
        suffix += std::to_string(attempt);
    }
    const std::size_t limit = NAME_MAX - std::string_view(".trashinfo").size() - suffix.size();
    std::size_t keep = name.size();
    if (keep > limit) {
        keep = limit;
        // Do not cut a multi-byte character in two: back up over continuation bytes.
        while (keep > 0 && (static_cast<unsigned char>(name[keep]) & 0xC0) == 0x80)
            --keep;
    }
    return name.substr(0, keep) + suffix;
}

bool writeAll(int fd, std::string_view data)
{
    while (!data.empty()) {
        const ssize_t written = ::write(fd, data.data(), data.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        data.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace quillorn::detail
