#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace quillorn::detail {

// The bytes of path with everything but unreserved URL characters and "/"
// written as %XX, so line feeds and bytes that are not UTF-8 survive the
// line-oriented, UTF-8 .trashinfo format.
std::string percentEncode(std::string_view path);

// The bytes %XX escapes (either case) stand for, the rest as it is; nothing
// when an escape is broken.
std::optional<std::string> percentDecode(std::string_view text);

// The raw value of the first key= line of a .trashinfo's [Trash Info] group.
std::optional<std::string_view> trashInfoValue(std::string_view contents, std::string_view key);

// The Path= value of a .trashinfo's [Trash Info] group, its %XX escapes turned
// back into bytes; nothing when there is none or an escape is broken.
std::optional<std::string> trashInfoPath(std::string_view contents);

// The whole .trashinfo file for an item whose recorded path is path (absolute,
// or relative to the trash's top folder).
std::string trashInfoContents(std::string_view path, std::string_view deletionDate);

// Local time as YYYY-MM-DDThh:mm:ss.
std::string deletionDate(std::time_t when = std::time(nullptr));

// The name an item gets in files/ on the given attempt: name, name.2, name.3...
// shortened (never inside a UTF-8 sequence) so that name + ".trashinfo" still
// fits in one file-name component.
std::string trashEntryName(const std::string &name, unsigned attempt);

// write() until all of data is written; false with errno set otherwise.
bool writeAll(int fd, std::string_view data);

} // namespace quillorn::detail
