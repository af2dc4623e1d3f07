#pragma once

#include <QString>
#include <filesystem>

namespace quillorn {

// Linux names are bytes. These are the only crossings between paths and drawn or
// typed text: invalid UTF-8 becomes U+FFFD for display, and text typed by the
// user becomes the file system's bytes.
QString displayText(const std::filesystem::path &path);
QString displayName(const std::filesystem::path &path);
std::filesystem::path pathFromText(const QString &text);

} // namespace quillorn
