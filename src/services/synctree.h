#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillorn {

class OperationControl;

// One item below the root of a synchronised folder.
struct SyncItem {
    enum class Kind : unsigned char { file, folder, link, other };

    // The relative path with each name in its canonical form (appendCanonicalName):
    // what is matched between the two sides and with the remembered state.
    std::string key;
    // The relative path as the file system spells it.
    std::string path;
    Kind kind = Kind::other;
    std::int64_t size = 0;
    std::int64_t modifiedNs = 0;
    std::uint64_t inode = 0;

    // Unchanged since the state was remembered: a folder by its kind alone (its
    // time moves with what it holds), anything else by size, time and inode.
    bool sameAs(const SyncItem &remembered) const;
};

// Every item below a root, from one descriptor walk (links are items, never
// followed), in tree order: names compared byte by byte, a folder right before
// what it holds. Staging items of a running transfer are left out.
class SyncTree {
public:
    // Throws CommanderError "Cannot enumerate <root>" when the root cannot be
    // opened, the platform's error for the first item that cannot be read
    // (a sync never plans from a partial tree), CancellationError.
    static SyncTree of(const std::filesystem::path &root, OperationControl &control);

    std::vector<SyncItem> items;

    // The index of the item with this key, or nothing.
    std::optional<std::size_t> find(std::string_view key) const;
    // One past the last item below the item at index.
    std::size_t subtreeEnd(std::size_t index) const;
    // The bytes of the files and links at index and below it.
    std::int64_t bytes(std::size_t index) const;

    // The order of the keys: "/" before every other byte.
    static bool before(std::string_view a, std::string_view b);
};

// The two trees as the last completed two-way run left them, kept under
// $XDG_STATE_HOME/Quillorn/sync in one file per folder pair.
struct SyncMemory {
    SyncTree left;
    SyncTree right;

    // What was remembered for the pair; a pair remembered the other way round
    // comes back with its sides swapped. Nothing when none was, or the file is
    // damaged (then no item is taken for deleted).
    static std::optional<SyncMemory> load(const std::filesystem::path &folder,
                                          const std::filesystem::path &left,
                                          const std::filesystem::path &right);
    // Replaces what was remembered for the pair, atomically. Throws PosixError.
    void save(const std::filesystem::path &folder, const std::filesystem::path &left,
              const std::filesystem::path &right) const;
    static std::filesystem::path defaultFolder();

    // Puts back, on both sides, what `earlier` remembered at these keys and
    // below them (nothing where it remembered nothing).
    void keepEarlier(const SyncMemory *earlier, const std::vector<std::string> &keys);
};

} // namespace quillorn
