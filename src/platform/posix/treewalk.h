#pragma once

#include <filesystem>
#include <string_view>

namespace quillorn {

// A depth-first, pre-order walk of a folder tree by descriptor: each folder is
// opened relative to its parent (never through a symbolic link) and read with
// getdents, and an entry's kind comes from the listing's d_type, so no entry is
// stat'ed unless the file system leaves its type unknown. Symbolic links are
// reported and never entered. One descriptor per level of depth stays open.
class TreeWalk {
public:
    enum class Kind : unsigned char { file, directory, symlink, other };

    struct Entry {
        std::string_view name;
        // From the root, components joined by "/"; bytes as the file system has them.
        std::string_view relativePath;
        int depth = 0; // 1 for a direct child of the root
        Kind kind = Kind::other;
    };

    enum class Next { proceed, stop };

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
};

} // namespace quillorn
