#pragma once

#include "operations/operationcontrol.h"

#include <filesystem>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace quillorn {

// What puts back the work of one job that completed in this session, as plain
// data: the queue runs it like any other job and the journal keeps it. Each
// kind first checks that everything the job left is still as it left it and,
// when anything changed or a name it needs is taken, refuses with a sentence
// that names the item, having touched nothing. An undo never removes anything
// for good: what it takes away goes to the Trash, and only an empty folder it
// made itself is removed.
struct UndoJob {
    // New names given within one folder, one item or a batch, in the order they
    // were given; put back last first, so a name a later one freed is free again.
    struct Rename {
        struct Name {
            std::string before; // the name the item had
            std::string after;  // the name it was given
            std::string seal;   // the item under `after`, sealed without looking inside
        };
        std::filesystem::path folder;
        std::vector<Name> names;
    };
    // The folder a new-folder job made: removed while it is empty.
    struct NewFolder {
        std::filesystem::path folder;
    };
    // Items a trash job sent to the Trash: put back through their .trashinfo.
    struct Trash {
        struct Item {
            std::filesystem::path original;
            std::filesystem::path trashed; // its place in the trash's files/ folder
        };
        std::vector<Item> items;
    };
    // Items a transfer published: moved back where they came from (a move) or
    // sent to the Trash (a copy).
    struct Transfer {
        struct Item {
            std::filesystem::path source;
            std::filesystem::path target;
            // The target when the job completed: its whole tree, or for a folder
            // that could not be read throughout, its own entry alone.
            std::string seal;
            bool wholeTree = true;
        };
        bool move = false;
        std::vector<Item> items;
    };

    std::variant<Rename, NewFolder, Trash, Transfer> change;
};

// The items an undo gives their places back: renamed items under their old
// names, trashed items where they were, moved items where they came from; none
// for a new folder or a copy, which it takes away.
std::vector<std::filesystem::path> itemsPutBack(const UndoJob &undo);

// The undo of names just given in one folder, each (before, after) in the order
// given: every renamed item is sealed as it is now. Throws what sealing throws.
UndoJob undoOfRenames(const std::filesystem::path &folder,
                      const std::vector<std::pair<std::string, std::string>> &names,
                      OperationControl &control);

} // namespace quillorn
