#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quillorn {

// The whole contents of a regular file of at most `limit` bytes. A final
// symbolic link is never followed and nothing but a regular file is opened (a
// FIFO would wait for a writer, a device might never end): such an item, or one
// larger than the limit, gives none. Throws PosixError when the item cannot be
// examined or read (a missing file, no permission).
std::optional<std::string> readRegularFile(const std::filesystem::path &file, std::size_t limit);

// Told of the hidden file a write makes next to its target before that file
// exists, and again once it has gone or taken the target's name: a staging
// journal keeps these, so the next start can remove one a killed process left.
struct StagingWatch {
    std::function<void(const std::filesystem::path &staging, const std::filesystem::path &target)> adding;
    std::function<void(const std::filesystem::path &staging)> done;
};

// How replaceContents wrote, or why it did not.
enum class ContentsWrite {
    changedOnDisk, // the file no longer held `expected` (or is no longer a regular file): nothing written
    replaced,      // a complete new file took the old one's place in one rename
    inPlaceLinked, // written into the file itself: it has other hard links, which must see the change
    inPlaceFolderClosed, // written into the file itself: no new file can be made in its folder
    inPlaceMetadata, // written into the file itself: a new file could not get its owner, mode or attributes
};

// Writes `bytes` as the contents of `file` if it still holds exactly `expected`.
//
// Normally a new file is written next to it, given the old one's owner and group
// (where permitted), mode, extended attributes and ACLs, flushed, and renamed
// over it: whenever the process dies, the name holds the old bytes or the new
// ones. Where that would lose something the user relies on (other hard links,
// the owner, an attribute) or the folder takes no new file, the file's own
// bytes are overwritten instead, once the new bytes are all in memory and the
// space for them is reserved, then flushed.
//
// A final symbolic link is never followed: a link now at that name counts as a
// change. Throws PosixError naming the file when it cannot be read or written
// (a deleted file, a full disk: the old contents stay).
ContentsWrite replaceContents(const std::filesystem::path &file, std::string_view expected,
                              std::string_view bytes, const StagingWatch &watch = {});

// Creates `file` holding `bytes`, never replacing an item of that name: the
// bytes are written and flushed under a hidden name in the same folder, which
// then takes the final name only if it is still free, so the name never shows a
// partial file. Throws PosixError naming the file, EEXIST when the name is taken
// (even by an item created while the bytes were written).
void createFile(const std::filesystem::path &file, std::string_view bytes, const StagingWatch &watch = {});

} // namespace quillorn
