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

// Text to edit a name in, which stands for its bytes exactly, so that an edit
// changes only what the user typed. Each byte outside valid UTF-8 becomes the
// lone low surrogate U+DC00 + byte (a lone byte below 0x80 is always valid), as
// Python's "surrogateescape" does: no valid UTF-8 and nothing typed decodes to
// a lone surrogate, so it reads back unambiguously, and the text engine draws
// it as the same replacement mark the panes show. pathFromEditableText turns
// each such placeholder back into its byte and everything else into UTF-8.
QString editableText(const std::filesystem::path &path);
std::filesystem::path pathFromEditableText(const QString &text);

} // namespace quillorn
