#pragma once

#include "operations/conflictpolicy.h"
#include "operations/folder.h"
#include "operations/operationcontrol.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace quillorn::detail {
struct Item;
}

namespace quillorn {

// The synchronous transfer engine: copies or moves a selection into a folder,
// never writing an item under its final name before it is complete. Every item
// is written into a hidden ".quillorn-<UUID>" staging item beside its target,
// flushed, verified and then published by one rename; a move within one volume
// is a single rename. Replaced items and copied move sources leave through
// discard(), which prefers the Trash.
//
// A FileOperations is a plain value: it keeps no state between calls and may be
// copied freely. Its services can be replaced at construction, which is how
// callers and tests substitute the Trash, permanent removal, the locality test
// and single file-system calls. All operations run on the caller's thread and
// report progress and honour cancellation through an OperationControl.
class FileOperations {
public:
    using Path = std::filesystem::path;
    // Moves an item to the user's Trash and returns where it is there; throws
    // when the volume has none or the move fails.
    using TrashService = std::function<Path(const Path &item)>;
    // Removes an item and all it contains for good; throws on failure.
    using RemoveService = std::function<void(const Path &item)>;
    // Whether the item's volume is local; true when unknown; throws when it cannot be read.
    using VolumeIsLocalService = std::function<bool(const Path &item)>;

    // The few file-system calls at which a transfer commits or moves data. The
    // defaults are the plain system calls; each throws PosixError on failure.
    struct FileManager {
        // Renames fromName in from to toName in to, never replacing an item there:
        // publishing a staging item, or a move within one volume.
        std::function<void(const Folder &from, const std::string &fromName, const Folder &to,
                           const std::string &toName)>
            rename;
        // Gives a file the engine wrote with no name yet the name toName in to,
        // never replacing an item there: publishing a lone file.
        std::function<void(int descriptor, const Folder &to, const std::string &toName)> name;
        // fsync(2) of an open file or folder.
        std::function<void(int descriptor, const Path &item)> flush;
        // syncfs(2) of the volume holding an open folder: where it reaches every
        // file (local volumes), the files of a copied folder are flushed together
        // before the folder is published; elsewhere each file is flushed itself.
        // Beside a busy volume it races the files' own flushes and may still be
        // running when the transfer has returned: it must own whatever it uses.
        std::function<void(int descriptor, const Path &item)> flushVolume;
        // Bytes, at most, of other programs' data that a flushVolume of the volume
        // holding an open folder would also wait for; above a few MiB the files of
        // a folder are flushed each on its own too, and the first of the two ways
        // to finish publishes the folder.
        std::function<std::uint64_t(int descriptor)> pendingWriteBack;
        // Copies at most `limit` bytes from `input` (source) to `output` (target) at
        // their current offsets; returns the count, 0 at the end of the source.
        std::function<std::size_t(int input, int output, std::size_t limit, const Path &source,
                                  const Path &target)>
            copyChunk;

        static FileManager posix();
    };

    // path -> "type|size|modification date|file number" for every item of a tree.
    using Fingerprint = std::map<Path, std::string>;

    static constexpr std::size_t chunkSize = 1'048'576;

    explicit FileOperations(TrashService trash = defaultTrash(), RemoveService remove = defaultRemove(),
                            VolumeIsLocalService volumeIsLocal = defaultVolumeIsLocal(),
                            FileManager manager = FileManager::posix());

    // The same engine, calling `check` with each item right before it goes to
    // the Trash or is removed for good; an item that `check` throws for stays.
    FileOperations checkingRemovals(std::function<void(const Path &item)> check) const;

    // The calls it was made with: a multi-rename renames through the same one.
    const FileManager &manager() const { return m_manager; }

    static TrashService defaultTrash();
    static RemoveService defaultRemove();
    static VolumeIsLocalService defaultVolumeIsLocal();

    // True when the item's own attributes can be read (a dangling link exists).
    static bool exists(const Path &url);
    // folder/name, refused when the name is not one valid name or is taken.
    static Path child(const std::string &name, const Path &folder);
    // folder/name, or the first free "base (n).ext" beside it.
    static Path availableName(const std::string &name, const Path &folder);
    // Refuses a destination that is the source folder or lies inside it, links resolved.
    static void validate(const Path &source, const Path &destination);

    // Copies or moves sources into destination and returns the published items
    // in processing order. Throws CommanderError, CancellationError or PosixError.
    std::vector<Path> transfer(const std::vector<Path> &sources, const Path &destination, bool move,
                               ConflictPolicy policy, OperationControl &control,
                               bool permanentlyRemoveRemoteItems) const;
    std::vector<Path> transfer(const std::vector<Path> &sources, const Path &destination, bool move,
                               ConflictPolicy policy, bool permanentlyRemoveRemoteItems) const;

    // Sends the item to the Trash; only on a volume that is not local, and only
    // with permission, removes it for good when the Trash fails. Returns where
    // the item is in the Trash; nothing when it was removed for good, or was
    // gone all the same after the Trash failed.
    std::optional<Path> discard(const Path &url, bool permanentlyIfRemoteTrashUnavailable) const;

    // Bytes an item holds (a folder: the sum of its contents; a link: its own size).
    static std::int64_t byteCount(const Path &url, OperationControl &control);
    // The bytes that transferring item into destination counts. An item that one
    // rename moves within its volume never needs its contents read, so a folder
    // inside it that the user may not list counts as empty instead of refusing
    // the move (mv moves it too); every other item is byteCount.
    static std::int64_t transferByteCount(const Path &item, const Path &destination, bool move,
                                          ConflictPolicy policy, OperationControl &control);
    // What a transfer counts: bytes, and items (every file, link and folder,
    // the item itself included).
    struct Amount {
        std::int64_t bytes = 0;
        std::int64_t items = 0;
    };
    static Amount transferAmount(const Path &item, const Path &destination, bool move, ConflictPolicy policy,
                                 OperationControl &control);
    // Copies one file, folder tree or symbolic link to target, which must not exist.
    void copy(const Path &source, const Path &target, OperationControl &control) const;
    static Fingerprint fingerprint(const Path &url, OperationControl &control);

    // Which facts about an item a seal covers. A source that is to be removed is
    // sealed with its change times: rewriting a file within the same second, or
    // setting its time back, still moves its change time. A copy is sealed
    // without them, since publishing it by a rename touches its change time.
    enum class SealScope { itemOnly, tree };
    // A digest that stays equal only while nothing in the item changes: SHA-256
    // over each entry of its tree (its path below the item, type, size,
    // modification time to the nanosecond, file number, and with changeTimes
    // the change time), in byte order of the paths, as 64 hex digits. Renaming
    // the item keeps it. itemOnly seals the item without looking inside, for a
    // folder that is renamed whole and may hold what cannot be read.
    static std::string seal(const Path &url, OperationControl &control, bool changeTimes,
                            SealScope scope = SealScope::tree);

private:
    // byteCount of what can be read: folders that cannot be opened or listed count 0.
    static Amount readableAmount(const Path &url, OperationControl &control);
    // byteCount with the items counted too.
    static Amount amount(const Path &url, OperationControl &control);
    // Standardised, duplicate-free, sorted sources, or the first validation failure.
    static std::vector<Path> plan(const std::vector<Path> &sources, const Path &destination,
                                  ConflictPolicy policy);
    struct Run;
    // The published target, or nothing when the item was skipped.
    std::optional<Path> transferItem(Run &run, const Path &item) const;
    // False when the volume refused the rename (EXDEV) and the item must be copied instead.
    bool renameOnVolume(Run &run, const detail::Item &item, const std::string &targetName) const;
    Path copyAndPublish(Run &run, const detail::Item &item, const std::string &targetName) const;
    // A new name in the folder on stable storage, as far as the volume allows: a
    // folder the user may write but not read (a drop box) cannot be opened to be
    // flushed. The rename before it was the commit, so this logs what it could
    // not do and never throws.
    void flushFolder(const Folder &folder) const;

    TrashService m_trash;
    RemoveService m_remove;
    VolumeIsLocalService m_volumeIsLocal;
    FileManager m_manager;
};

} // namespace quillorn
