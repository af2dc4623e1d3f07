#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace quillorn {

// True when item itself (a final symbolic link is not followed) is the root of a
// mount: another volume mounted there, or a bind mount, even of a folder of the
// same volume. False when the item cannot be examined.
bool isMountPoint(const std::filesystem::path &item);

// What a permanent removal left behind. The message is one sentence naming the
// first item left and why, written to follow "The item still exists at PATH. ";
// a failed system call underneath is kept as the nested exception (a PosixError).
class RemovalError : public std::runtime_error, public std::nested_exception {
public:
    RemovalError(std::filesystem::path left, const std::string &sentence)
        : std::runtime_error(sentence), m_left(std::move(left))
    {
    }

    const std::filesystem::path &path() const noexcept { return m_left; }

private:
    std::filesystem::path m_left;
};

// Removes item and everything below it for good, as `rm -r --one-file-system`
// does: the tree is walked by descriptor (no link is ever followed, nothing is
// looked up by path below item), and nothing on another file system or below
// another mount (a bind mount of the same volume too) is entered. What cannot be
// removed stays; everything else goes, and then the first item left is reported.
//
// makeWritable is for the program's own staging items: a folder without its
// owner's read, write or search permission gets them before it is emptied.
//
// A missing item is not an error. Throws RemovalError, removing nothing, when item
// is itself a mount point; RemovalError when something below item was left;
// PosixError when item itself could not be examined or removed.
void removeTree(const std::filesystem::path &item, bool makeWritable = false);

} // namespace quillorn
