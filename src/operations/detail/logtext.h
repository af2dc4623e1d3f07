#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quillorn::detail {

// text with every byte that is not part of a valid UTF-8 sequence replaced by U+FFFD.
std::string validUtf8(const std::string &text);

// ["path", "path"]: each path in double quotes with \\ \" \' \t \n \r \0 escaped
// and other control characters written as \u{hex}, so a line feed inside a name
// cannot break the line apart.
std::string quotedPathList(const std::vector<std::filesystem::path> &paths);

} // namespace quillorn::detail
