#pragma once

#include <filesystem>
#include <string>

namespace quillorn {

// The program's one rename that never replaces an existing item: fromName in the
// folder open as fromFolder becomes toName in toFolder. RENAME_NOREPLACE lets the
// kernel refuse atomically. Where a file system cannot (EINVAL, ENOSYS: FUSE
// daemons, some network ones) the name is claimed by a call that refuses a taken
// name just as atomically: a file gets the new name as a hard link and loses the
// old one; a folder replaces an empty placeholder folder made there first. Only
// where the volume refuses those too (FAT has no hard links and will not rename
// onto a folder) is the name checked right before a plain rename, which leaves
// that short window.
//
// A name that is taken by the very item being renamed (a case-only rename on a
// case-insensitive volume: "Photo.JPG" to "photo.jpg") is not an obstacle: the
// item keeps its data and only its name changes.
//
// Throws PosixError (EEXIST when the name is taken) naming shown.
void renameWithoutReplacing(int fromFolder, const std::string &fromName, int toFolder,
                            const std::string &toName, const std::filesystem::path &shown);

// The same, for two paths.
void renameWithoutReplacing(const std::filesystem::path &from, const std::filesystem::path &to);

// Whether to, in the same folder as item, is item itself found under another
// letter case: the folder does not list that spelling, yet the volume answers
// for it. Decided from the listing, since some FUSE file systems give one item a
// new inode number for each spelling.
bool sameItemInAnotherCase(const std::filesystem::path &item, const std::filesystem::path &to);

} // namespace quillorn
