#pragma once

#include <optional>
#include <string>

namespace quillorn {

// Bytes as text for the journals: printable ASCII other than "%" as it is, every
// other byte as %XX (upper-case hexadecimal), so any byte string round-trips and
// the text holds no space and no line break.
std::string percentEncoded(const std::string &bytes);
// Nothing when the text is not such an encoding.
std::optional<std::string> percentDecoded(const std::string &text);

} // namespace quillorn
