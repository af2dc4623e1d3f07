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

// Receives one line for the log when a volume's shared .Trash folder is passed
// over: "TRASH SKIPPED path=<the .Trash> reason=<symbolic link | not sticky |
// not a folder>". Such a folder is an administrator's mistake or an attack, and
// the desktop's Trash rules want it reported rather than passed over in silence.
using TrashReport = std::function<void(const std::string &line)>;

// Moves item into the freedesktop.org trash that belongs to its volume (the home
// trash when it lives on the home trash's device) so the desktop can restore it.
// Returns the item's new path inside that trash's files/ folder.
// Throws NoTrashError, or std::system_error (generic category, errno) when the
// move itself fails; a failed move leaves no .trashinfo behind.
std::filesystem::path trashItem(const std::filesystem::path &item, const TrashReport &report = {});

} // namespace quillorn
