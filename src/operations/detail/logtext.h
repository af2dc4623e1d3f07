#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quillorn::detail {

// text with every byte that is not part of a valid UTF-8 sequence replaced by U+FFFD.
std::string validUtf8(const std::string &text);

// ["path", "path"]: each path in double quotes with \\ \" \' \t \n \r \0 escaped
// and other control characters written as \u{hex}, so a line feed inside a name
// cannot break the line apart; a byte outside valid UTF-8 is written as \xNN.
std::string quotedPathList(const std::vector<std::filesystem::path> &paths);

// A path as a log value: its bytes, with valid UTF-8 of any script kept as it is,
// a backslash written as \\, a tab, line feed and carriage return as \t \n \r,
// and every other control character and every byte outside valid UTF-8 as \xNN.
// The result is one line of valid UTF-8 from which the exact bytes read back, so
// a name can neither break a log line apart nor be confused with another name.
std::string logPath(const std::filesystem::path &path);
// Text that may carry a name (an error's description, a step shown to the user),
// escaped the same way.
std::string logText(const std::string &text);

} // namespace quillorn::detail
