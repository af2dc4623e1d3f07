#pragma once

#include "operations/conflictpolicy.h"
#include "operations/fileoperations.h"
#include "operations/operationcontrol.h"
#include "services/archiveextraction.h"
#include "services/archivepacking.h"
#include "services/archiveunpacking.h"
#include "services/syncjob.h"
#include "services/undojob.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace quillorn {

// What one job of the transfer queue does, as plain data: the queue runs it,
// and the job journal stores it so that a job a crash cut short can be run
// again at the next start. Paths are kept as the system's bytes.
struct TransferJob {
    std::vector<std::filesystem::path> sources;
    std::filesystem::path destination;
    bool move = false;
    ConflictPolicy policy = ConflictPolicy::stop;
};
struct RenameJob {
    std::filesystem::path item;
    std::string name;
};
// Many items of one folder renamed together, all or none (renameAll).
struct MultiRenameJob {
    std::filesystem::path folder;
    std::vector<std::pair<std::string, std::string>> names; // old name, new name: bytes

    // The job that gives every item its old name back.
    MultiRenameJob reversed() const;
};
struct NewFolderJob {
    std::filesystem::path folder;
    std::string name;
};
struct TrashJob {
    std::vector<std::filesystem::path> items;
};
// Items of the Trash (their places in a trash's files/ folder) put back where
// they came from, the folder made again where it is gone, never over an item
// that has the name now: with keepBoth the item takes the first free name
// beside it ("name (2).ext"); without, the job stops there.
struct RestoreFromTrashJob {
    std::vector<std::filesystem::path> items;
    bool keepBoth = false;
};
// Items of the Trash removed for good, each with its info file and its line of
// the trash's directorysizes.
struct EraseFromTrashJob {
    std::vector<std::filesystem::path> items;
};
// Work given as a function: it runs like any other job but cannot be written
// down, so a crash forgets it.
struct OpaqueJob {
    std::function<void(OperationControl &)> work;
};

// An ArchiveExtraction is journaled without the member's bytes it may carry: run
// again, it reads the member from the archive.
using Job =
    std::variant<TransferJob, RenameJob, NewFolderJob, TrashJob, ArchiveExtraction, OpaqueJob, MultiRenameJob,
                 UndoJob, RestoreFromTrashJob, EraseFromTrashJob, SyncJob, ArchiveUnpackJob, ArchivePackJob>;

// Runs jobs on the calling (background) thread with one engine.
class JobRunner {
public:
    using Path = std::filesystem::path;

    explicit JobRunner(FileOperations operations = FileOperations()) : m_operations(std::move(operations)) {}

    // One item an earlier run published or was about to publish: recorded before
    // the publishing rename, confirmed once it was done.
    struct Publication {
        PublishIntent intent;
        bool confirmed = false;

        bool operator==(const Publication &) const = default;
    };
    // What an earlier run of the same job, cut short by a crash, got done.
    struct Earlier {
        std::vector<Publication> published;
    };
    // A moved source a resumed job did not remove, and why: it changed after it
    // was copied, or its copy is no longer the one published.
    struct KeptSource {
        Path source;
        Path target;
        std::string reason;
    };

    // What a job that returned leaves to tell.
    struct Result {
        std::vector<KeptSource> kept;
        // Every source of a transfer, when each was skipped for a name that
        // exists at the destination; empty when anything was transferred.
        std::vector<Path> skipped;
        bool move = false;
        Path destination;
        // Where each item of a trash job went, in its order; an item removed for
        // good (a share without a Trash) is not among them.
        std::vector<UndoJob::Trash::Item> trashed;
        // Where each item a restore put back is now, in its order.
        std::vector<Path> restored;
        // The steps of a synchronisation left undone, each with its reason.
        std::vector<std::pair<Path, std::string>> syncSkipped;
        // The folder an unpacking made, or the archive a packing made.
        std::optional<Path> made;
    };

    // Runs the job; throws what its work throws. Run again after a crash
    // (`earlier` given), a job skips what the earlier run finished: a published
    // source is not transferred again (an item found under its final name counts
    // as published when it is the very copy the earlier run was publishing), and
    // a moved one that is still there now leaves as any moved source does,
    // through the Trash, but only while it and its copy are exactly as they were
    // verified; otherwise it stays and is returned. An item already trashed,
    // renamed or created is not missed.
    Result run(const Job &job, OperationControl &control, const Earlier *earlier = nullptr) const;

    // The bytes a job will count through its control, or nothing when that
    // cannot be known before it runs (work given as a function).
    static std::optional<std::int64_t> measure(const Job &job, OperationControl &control);

    // What puts back the work of a job that completed on its first run, from
    // what the run returned and the intents of the items its control told as
    // published. What the job left is sealed as it is now, or, for a copy,
    // taken by the seal the engine gave it before its publishing rename.
    // Nothing for a job that cannot be undone: an undo, an extraction, work
    // given as a function, a transfer that published nothing or that replaced
    // items (those stay in the Trash, where a move back would not find them).
    static std::optional<UndoJob> undoOf(const Job &job, const Result &result,
                                         const std::vector<PublishIntent> &published,
                                         OperationControl &control);

    // Whether the job can be written to the journal.
    static bool storable(const Job &job) { return !std::holds_alternative<OpaqueJob>(job); }

private:
    Result transfer(const TransferJob &job, OperationControl &control, const Earlier *earlier) const;
    std::vector<UndoJob::Trash::Item> trash(const TrashJob &job, OperationControl &control,
                                            const Earlier *earlier) const;
    // Run again after a crash (`resumed`), what is already back counts as done.
    void undo(const UndoJob &job, OperationControl &control, const Earlier *earlier) const;
    void moveBack(const UndoJob::Transfer::Item &item, OperationControl &control) const;

    FileOperations m_operations;
};

} // namespace quillorn
