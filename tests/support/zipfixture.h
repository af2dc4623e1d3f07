#pragma once

#include "scopedmount.h"

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace quillorn::test {

// One member of a ZIP made by makeZip: kind "data" (value: the bytes), "zeros"
// (value: how many), "link" (value: the link's target), "many" (value:
// "COUNT,LENGTH", that many empty members with names of that length). Names are raw bytes.
struct ZipMember {
    std::string kind;
    std::string name;
    std::string value;
};

inline std::string hexText(std::string_view bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char c : bytes)
        text += {digits[c >> 4], digits[c & 15]};
    return text;
}

// Writes the archive with python3's zipfile (tests/support/makezip.py).
inline std::filesystem::path makeZip(const std::filesystem::path &out, const std::vector<ZipMember> &members,
                                     bool encrypted = false)
{
    std::string command = "python3 " QUILLORN_MAKEZIP " " + shellQuote(out.string());
    if (encrypted)
        command += " --encrypted";
    for (const ZipMember &member : members)
        command += " " + member.kind + ":" + hexText(member.name) + ":" +
                   (member.kind == "zeros" || member.kind == "many" ? member.value : hexText(member.value));
    int status = 0;
    runCommand(command + " 2>&1", &status);
    if (status != 0)
        throw std::runtime_error("makezip.py failed for " + out.string());
    return out;
}

} // namespace quillorn::test
