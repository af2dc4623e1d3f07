#pragma once

#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

namespace quillorn {

// The Trash seen from inside: what the desktop's trash folders hold, as their
// .trashinfo files tell it (the same files `gio trash`, Dolphin and this
// program write), and the removal of items for good. Putting an item back is
// restoreTrashedItem (trash.h).

// One item of a trash folder.
struct TrashedItem {
    std::filesystem::path trashed; // in its trash's files/ folder
    // Where it was trashed from; empty when its info names no place it could go back to.
    std::filesystem::path origin;
    std::string deletionDate; // local time "YYYY-MM-DDThh:mm:ss" as recorded; empty when none
    // A file's (or link's) bytes; a folder's disk usage, as the trash's directorysizes caches it.
    std::int64_t size = 0;
    bool folder = false;
};

// The user's trash folders that exist now: the home trash, then on each of the
// volumes (mount points) $topdir/.Trash/$uid, used only while $topdir/.Trash is
// a real, sticky folder, and $topdir/.Trash-$uid; each a real folder of the
// user's, never one reached through a link. Each folder once.
std::vector<std::filesystem::path> trashFolders(const std::vector<std::filesystem::path> &volumes);

// The items of one trash folder, by their names in files/. An info whose item
// is missing (another program between writing it and moving its item in) is
// passed over, as is an item without an info. A folder's size comes from the
// trash's directorysizes where its line carries its info's time; otherwise it
// is counted, and the cache is written back with a line for exactly the
// folders present. Once stop is requested, returns what it has at once and
// writes nothing. Throws PosixError when the info folder cannot be read.
std::vector<TrashedItem> readTrash(const std::filesystem::path &trash, std::stop_token stop = {});

// Removes an item of a trash's files/ folder for good with all it holds, then
// its info: in that order, so that a crash in between leaves at worst an info
// without its item, which readers pass over, never an item whose origin is
// lost; then its directorysizes line. An item already gone only loses its info
// and line. Throws RemovalError or PosixError; the info stays while the item does.
void eraseTrashedItem(const std::filesystem::path &trashed);

} // namespace quillorn
