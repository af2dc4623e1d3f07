#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace quillorn {

// A depth-first, pre-order walk of a folder tree by descriptor: each folder is
// opened relative to its parent (never through a symbolic link) and read with
// getdents, and an entry's kind comes from the listing's d_type, so no entry is
// stat'ed unless the file system leaves its type unknown or the caller asks for
// its facts. Symbolic links are reported and never entered. One descriptor per
// level of depth stays open.
class TreeWalk {
public:
    enum class Kind : unsigned char { file, directory, symlink, other };

    struct Entry {
        std::string_view name;
        // From the root, components joined by "/"; bytes as the file system has them.
        std::string_view relativePath;
        int depth = 0; // 1 for a direct child of the root
        Kind kind = Kind::other;
        int parentFd = -1; // the open folder that holds the entry, valid during the call
        // With Options::facts, from one statx of the entry itself (a link is not followed).
        std::int64_t size = 0;
        std::uint64_t blocks = 0; // 512-byte units the entry takes on disk, as du counts them
        std::uint64_t inode = 0;
        std::uint64_t device = 0;
        std::uint32_t links = 0;
        // With Options::oneVolume: a folder on another device than the walk's
        // start (a mount point), which the walk does not enter.
        bool otherVolume = false;
    };

    struct Options {
        // Leaves out names beginning with "." together with everything under them.
        bool skipHidden = false;
        // Fills each entry's size, blocks, inode, device and link count: one
        // statx per entry, asking for no more than those.
        bool facts = false;
        // With facts: stays on the start folder's volume, as du -x does.
        bool oneVolume = false;
    };

    // prune: do not enter this folder (the entry itself counts as met).
    enum class Next { proceed, prune, stop };

    // A folder to walk from, already open: its descriptor (the walk closes it),
    // its path from the tree's root, its depth and its own name.
    struct Start {
        int fd = -1;
        std::string relativePath;
        int depth = 0;
        std::string name;
    };

    class Visitor {
    public:
        virtual Next entry(const Entry &entry) = 0;
        // A folder that could not be opened or read (or an entry whose type
        // could not be read); `error` is the errno value. With proceed the walk
        // goes on with the rest of the tree.
        virtual Next failed(const Entry &entry, int error) = 0;

    protected:
        ~Visitor() = default;
    };

    // Walks everything below `root` (not the root itself). `skipHidden` leaves
    // out names beginning with "." together with everything under them.
    // Throws PosixError when the root cannot be opened as a folder; exceptions
    // from the visitor pass through with every descriptor closed.
    static void walk(const std::filesystem::path &root, bool skipHidden, Visitor &visitor);
    // The same below a folder opened earlier, so that parts of one tree can be
    // walked apart (on several threads) with paths and depths as from its root.
    static void walk(Start start, bool skipHidden, Visitor &visitor);
    static void walk(Start start, const Options &options, Visitor &visitor);
    // Opens a folder to walk from by its path, following a final link, and sets
    // `size` to the folder's own apparent size whenever it can be examined, also
    // when it cannot be opened. -1 with errno set on failure.
    static int openStart(const std::filesystem::path &folder, std::int64_t &size);
    // Opens a folder for walking, relative to an open one, never through a link;
    // -1 with errno set on failure.
    static int openFolder(int parentFd, const char *name);
    // Opens a file met by the walk for reading, relative to an open folder:
    // never through a link, never waiting on a FIFO, and only a regular file
    // (anything else, swapped in since it was listed, gives ELOOP or ENODEV).
    // Sets `size` to its size when open. -1 with errno set on failure.
    static int openFile(int parentFd, const char *name, std::int64_t &size);
    // Opens the folder at a relative path below an open folder, one component
    // at a time, so that no component is followed if it is a link.
    static int openBelow(int rootFd, std::string_view relativePath);
};

// The first item a walk could not read, thrown as a PosixError once the walk has
// stopped (a visitor's failed() must not throw through the walk's open folders).
class WalkFailure {
public:
    TreeWalk::Next record(std::filesystem::path item, int error)
    {
        if (!m_error) {
            m_error = error;
            m_item = std::move(item);
        }
        return TreeWalk::Next::stop;
    }
    void throwIfFailed() const;

private:
    int m_error = 0;
    std::filesystem::path m_item;
};

} // namespace quillorn
