#pragma once

#include "platform/posix/filedescriptor.h"

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace quillorn {

// The journals of running Quillorns share one folder; each process names its
// files PREFIX + its owner id + a suffix (".lock", ".journal", ...) and holds an
// flock on its ".lock" file for as long as it lives, so "the lock can be taken"
// means "the owner is gone", whatever became of its process id.

// A new owner id: the process id and a random part, so a reused process id
// never names an old owner's files.
std::string newOwnerId();

// Takes this process's lock file name in folder: made, locked, and then checked
// to still carry its name, since a recovery may have found it in between,
// unlocked, and deleted it. Throws PosixError naming shown.
FileDescriptor takeLock(int folder, const std::string &name, const std::filesystem::path &shown);

// The owner ids named by the files of folder that begin with prefix.
std::set<std::string> ownersIn(int folder, std::string_view prefix);

// The owner's lock, now held by this process, when the owner is gone: an empty
// descriptor when it left no lock file (a live owner takes its lock before it
// writes anything else, and recovery deletes the lock last). Nothing while the
// owner lives; nothing of it may then be touched.
std::optional<FileDescriptor> lockOfGoneOwner(int folder, std::string_view prefix, const std::string &owner);

} // namespace quillorn
