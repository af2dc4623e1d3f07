#pragma once

#include "operations/fileoperations.h"
#include "operations/operationcontrol.h"
#include "platform/posix/volume.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace quillorn {

// One item of a multi-rename: the name it has in its folder and the one it is
// to take, both as the file system's bytes.
using NameChange = std::pair<std::string, std::string>;

// Why a planned name cannot be given. A change that keeps its name has none.
enum class NameConflict {
    none,
    invalid,         // empty, "." or "..", or holds "/" or NUL
    tooLong,         // more than NAME_MAX bytes
    refusedByVolume, // a character or an ending the folder's volume refuses
    duplicate,       // another item of the plan is to take the same name
    taken,           // an item of the folder that keeps its name has it
};

// The bytes a name may have on Linux file systems.
inline constexpr std::size_t nameMax = 255;

// What a plan is checked against: the names the folder holds now (hidden ones
// included) and how its volume treats names.
struct RenameFolder {
    std::unordered_set<std::string> names;
    VolumeNaming naming;
    // The modification time of each item asked for, in the order asked; the
    // clock's earliest time where it could not be read.
    std::vector<std::chrono::system_clock::time_point> modified;
};

// Reads the folder's names and volume, and the modification times of items
// (names in it); throws PosixError when the folder cannot be listed.
RenameFolder readRenameFolder(const std::filesystem::path &folder,
                              const std::vector<std::string> &items = {});

// The conflict of each change, in order. Names the plan frees (the old names
// of the items that change) are not taken: chains and cycles are ordered by
// the run. On a volume that ignores letter case, names are compared that way.
std::vector<NameConflict> nameConflicts(const std::vector<NameChange> &changes, const RenameFolder &folder);

// A complete sentence about the conflict of a change, for messages.
std::string conflictMessage(NameConflict conflict, const NameChange &change);

// The function that renames fromName to toName in an open folder without ever
// replacing an item (FileOperations::FileManager::rename).
using NoReplaceRename = std::function<void(const Folder &from, const std::string &fromName, const Folder &to,
                                           const std::string &toName)>;

// Gives the items of one folder their new names, all or none: renames that
// depend on each other run in an order that never needs a taken name (b→c
// before a→b), and a cycle (a→b, b→a) goes through a hidden name in the same
// folder. If a rename fails, every one already done is undone in reverse and
// the error says which item failed and why. A cancellation is noticed only
// between renames that leave every item under a name of its own (never in the
// middle of a cycle) and keeps what is done.
//
// Before the first rename, an intent for each cycle (source: its first item,
// staging: the hidden name, target: that item's new name, copySeal: the
// item's identity) is told to control.publishing() at once, which a journal
// makes durable in one write. Run again
// after a crash (`earlier`: the intents recorded then), the job works out
// from the names present how far each chain or cycle got and goes on from
// there; a cycle whose names are all back is told done from not begun by its
// intent. Nothing is ever overwritten, so a state it cannot place makes it
// fail and put back, never lose an item.
//
// Throws CommanderError (invalid plan, failed rename) or CancellationError.
void renameAll(const std::filesystem::path &folder, const std::vector<NameChange> &changes,
               const NoReplaceRename &rename, OperationControl &control,
               const std::vector<PublishIntent> *earlier = nullptr);

} // namespace quillorn
