#pragma once

#include <string>
#include <string_view>

namespace quillorn {

// Appends the key under which a file name is compared with names from another
// folder: its canonically composed form (NFC) when it is valid UTF-8, so "é"
// written as one code point and as e + combining accent meet; otherwise its
// bytes unchanged, so two names that differ only in invalid bytes stay apart
// (an NFC key is always valid UTF-8, so the two kinds never collide either).
void appendCanonicalName(std::string &key, std::string_view name);

bool isValidUtf8(std::string_view text);

} // namespace quillorn
