#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

namespace quillorn {

// Raised when the item's volume has no trash we may use: a read-only mount, a
// network share without one, or only trash folders that fail the safety checks.
class NoTrashError : public std::runtime_error {
public:
    NoTrashError() : std::runtime_error("no Trash on this volume") {}
};

// Raised when a trashed item's .trashinfo names no place it could go back to:
// no Path= line, a broken escape, or a relative path that climbs out of its volume.
class TrashInfoError : public std::runtime_error {
public:
    TrashInfoError() : std::runtime_error("the Trash does not record where the item came from") {}
};

// Receives one line for the log when a volume's shared .Trash folder is passed
// over: "TRASH SKIPPED path=<the .Trash> reason=<symbolic link | not sticky |
// not a folder>". Such a folder is an administrator's mistake or an attack, and
// the desktop's Trash rules want it reported rather than passed over in silence.
using TrashReport = std::function<void(const std::string &line)>;

// Moves item into the freedesktop.org trash that belongs to its volume (the home
// trash when it lives on the home trash's device) so the desktop can restore it.
// Returns the item's new path inside that trash's files/ folder. A folder's
// size joins the trash's directorysizes cache.
// Throws NoTrashError, or std::system_error (generic category, errno) when the
// move itself fails; a failed move leaves no .trashinfo behind.
std::filesystem::path trashItem(const std::filesystem::path &item, const TrashReport &report = {});

// Where an item in a trash's files/ folder came from, as its .trashinfo records
// it: the Path= line, percent-decoded to the name's very bytes, taken from the
// trash's top folder when it is relative. Throws TrashInfoError, or PosixError
// when the .trashinfo cannot be read.
std::filesystem::path trashedItemOrigin(const std::filesystem::path &trashed);

// Puts an item of a trash's files/ folder back where trashedItemOrigin says it
// came from, never replacing an item that now has its name (PosixError EEXIST
// naming that place) and never into a folder that is gone (ENOENT); then its
// .trashinfo and its line in the trash's directorysizes go. Returns where the
// item is now.
std::filesystem::path restoreTrashedItem(const std::filesystem::path &trashed);
// The same to another place, such as a free name beside its origin.
std::filesystem::path restoreTrashedItem(const std::filesystem::path &trashed,
                                         const std::filesystem::path &target);

} // namespace quillorn
