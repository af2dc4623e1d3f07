#pragma once

#include <string>

namespace quillorn::detail {

// The canonically composed (NFC) form of a UTF-8 path, so that "é" typed as one
// code point and as e + combining accent order the same way. Bytes that are not
// valid UTF-8 are returned unchanged: they still order, by their bytes.
std::string composedForm(const std::string &utf8);

} // namespace quillorn::detail
