#pragma once

#include <QByteArray>
#include <QUrl>
#include <filesystem>
#include <optional>

namespace quillorn {

// file:// URLs built from and read back into path bytes. Every byte outside
// the unreserved set is percent-encoded, so a name that is not valid UTF-8
// survives the round trip through other programs unchanged.
QByteArray encodedFileUrl(const std::filesystem::path &path);
QUrl fileUrl(const std::filesystem::path &path);

// The local path of a file URL (host empty, "localhost" or this machine);
// none for other schemes, remote hosts and relative paths.
std::optional<std::filesystem::path> pathFromFileUrl(const QByteArray &encoded);

} // namespace quillorn
