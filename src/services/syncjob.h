#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

// One confirmed action of a folder synchronisation, as the queue runs it and
// the job journal keeps it. The seals were taken when the plan was made
// (FileOperations::seal with change times): an item that no longer has its seal
// just before it is copied, replaced or trashed is left alone and reported.
struct SyncStep {
    enum class Kind { copy, replace, trash };
    Kind kind = Kind::copy;
    std::filesystem::path source; // what is copied; empty for a trash
    std::filesystem::path target; // what is created, replaced or trashed
    // Empty where nothing is checked: a new folder's contents may grow until
    // it is copied, and copying them loses nothing.
    std::string sourceSeal;
    std::string targetSeal;
    std::int64_t bytes = 0;
    // The item's key in the plan (SyncItem::key).
    std::string key;

    bool operator==(const SyncStep &) const = default;
};

// The checked actions of a synchronisation plan between two folders. With
// `remember` (both ways), the state of both trees is remembered when the run
// ends, so that the next plan tells a deletion from a creation.
struct SyncJob {
    std::filesystem::path left;
    std::filesystem::path right;
    bool remember = false;
    std::vector<SyncStep> steps;
    // The keys of the plan's actions left out (unchecked, or conflicts): the
    // state remembered for them stays as it was, so that the next plan sees
    // them as this one did.
    std::vector<std::string> pending;

    bool operator==(const SyncJob &) const = default;
};

} // namespace quillorn
