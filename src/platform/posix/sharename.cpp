#include "platform/posix/sharename.h"

#include <algorithm>
#include <map>

namespace quillorn {
namespace {

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// GLib's URI escaping, undone; a stray "%" stays as it is.
std::string unescaped(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
        if (low < 0) {
            bytes.push_back(text[i]);
            continue;
        }
        bytes.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return bytes;
}

std::string lastFolder(std::string path)
{
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path.substr(path.rfind('/') + 1);
}

} // namespace

std::string gvfsShareName(std::string_view folderName)
{
    const std::size_t colon = folderName.find(':');
    if (colon == std::string_view::npos || colon == 0)
        return std::string(folderName);
    const std::string_view type = folderName.substr(0, colon);
    std::map<std::string, std::string> keys;
    std::string_view rest = folderName.substr(colon + 1);
    while (!rest.empty()) {
        const std::string_view pair = rest.substr(0, rest.find(','));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        const std::size_t equals = pair.find('=');
        if (equals == std::string_view::npos || equals == 0)
            return std::string(folderName);
        keys[std::string(pair.substr(0, equals))] = unescaped(pair.substr(equals + 1));
    }
    const auto value = [&keys](const char *key) {
        const auto found = keys.find(key);
        return found == keys.end() ? std::string() : found->second;
    };
    const std::string host = !value("server").empty() ? value("server") : value("host");
    if (host.empty())
        return std::string(folderName);
    std::string what = type == "smb-share" ? value("share") : type == "afp-volume" ? value("volume") : "";
    if (what.empty())
        what = lastFolder(value("prefix"));
    if (what.empty())
        what = value("user");
    return what.empty() ? host : what + " on " + host;
}

std::string kioFuseShareName(std::string_view protocol, std::string_view origin)
{
    // The user and the port are part of the folder name, not of the server's.
    origin.remove_prefix(origin.rfind('@') == std::string_view::npos ? 0 : origin.rfind('@') + 1);
    if (const std::size_t colon = origin.rfind(':');
        colon != std::string_view::npos && origin.find(']', colon) == std::string_view::npos)
        origin = origin.substr(0, colon);
    return std::string(origin) + " (" + std::string(protocol) + ")";
}

} // namespace quillorn
