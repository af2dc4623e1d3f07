#pragma once

#include "services/syncjob.h"
#include "services/synctree.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

class OperationControl;

// How two folders are to be synchronised.
struct SyncOptions {
    enum class Direction { leftToRight, rightToLeft, bothWays };
    // Items on one side only: copied over, or, for a one-way mirror, moved to
    // the Trash on the target side.
    enum class OneSideOnly { copy, trash };
    enum class Comparison { sizeAndTime, content };

    Direction direction = Direction::bothWays;
    OneSideOnly oneSideOnly = OneSideOnly::copy;
    Comparison comparison = Comparison::sizeAndTime;
};

enum class SyncSide { left, right };

// One line of a plan.
struct SyncAction {
    enum class Kind { copyNew, replaceOlder, trashExtra, createFolder, conflict };

    Kind kind = Kind::copyNew;
    // Copies, replacements and new folders: the side copied from. A trash: the
    // side the item leaves.
    SyncSide side = SyncSide::left;
    std::string key;  // the relative path in canonical form (SyncItem::key)
    std::string path; // the relative path as the side that has it spells it
    // Why a conflict is one, or why an item is trashed in a two-way run.
    std::string why;
    // Where the item is, or would be, on each side.
    std::filesystem::path left, right;
    bool onLeft = false, onRight = false;
    bool leftFolder = false, rightFolder = false;
    std::int64_t leftBytes = 0, rightBytes = 0;
    // Taken when the plan was made; a step checks them again before it acts.
    std::string leftSeal, rightSeal;
    bool checked = true;
    // A conflict the user settled by picking a side.
    bool resolved = false;

    // The bytes the action copies.
    std::int64_t bytes() const;
};

// What synchronising two folders would do, made from one walk of each side and,
// both ways, the state the last run left. Nothing in it runs before job() is
// queued. Both ways without a remembered state it never deletes: an item on one
// side only is copied over. An item changed on both sides since the last run,
// a type clash, and, one way, a target newer than its source are conflicts:
// unchecked until the user picks a side.
class SyncPlan {
public:
    using Path = std::filesystem::path;

    // Throws what the walks and the content digests throw, CancellationError.
    static SyncPlan make(const Path &left, const Path &right, const SyncOptions &options,
                         const SyncMemory *memory, OperationControl &control);

    const Path &left() const { return m_left; }
    const Path &right() const { return m_right; }
    const SyncOptions &options() const { return m_options; }
    const std::vector<SyncAction> &actions() const { return m_actions; }

    // An unsettled conflict stays unchecked.
    void setChecked(std::size_t index, bool checked);
    // The conflict is settled in favour of one side: its item is copied over,
    // replaces the other's, or, when that side has none, the other's is trashed.
    void resolve(std::size_t index, SyncSide winner);
    // The bytes the checked actions copy.
    std::int64_t bytesToTransfer() const;
    std::size_t checkedCount() const;
    // The checked actions as one queue job.
    SyncJob job() const;

private:
    Path m_left, m_right;
    SyncOptions m_options;
    std::vector<SyncAction> m_actions;
};

} // namespace quillorn
