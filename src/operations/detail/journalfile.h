#pragma once

#include "platform/posix/filedescriptor.h"

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace quillorn::detail {

// The file handling the journals of running Quillorns share. Each owner names
// its files PREFIX + owner id + suffix in one folder and holds an flock on its
// ".lock" file for as long as it lives (see ownerlocks.h).

std::string ownerFileName(std::string_view prefix, const std::string &owner, std::string_view suffix);

// What an owner holds open while it lives: the journals' folder and its lock.
struct OwnerFiles {
    FileDescriptor folder, lock;

    // Opens the folder (made private where new) and takes the owner's lock,
    // each only once. Throws PosixError.
    void open(const std::filesystem::path &path, std::string_view prefix, const std::string &owner);
};

// Calls visit(owner, lock) for each owner in folder other than self that is
// gone, one at a time, with its lock held by this process (see lockOfGoneOwner):
// visit may keep the lock by moving it away.
void forEachGoneOwner(int folder, std::string_view prefix, const std::string &self,
                      const std::function<void(const std::string &, FileDescriptor &)> &visit);

// The journals' folder for a recovery: an empty descriptor where it does not
// exist, so that a recovery never creates it.
FileDescriptor openJournalFolder(const std::filesystem::path &path);

// name in folder, read-only, never through a symbolic link; errno tells why
// when the descriptor is empty.
FileDescriptor openForReading(int folder, const std::string &name);

// Writes all of text, going on after interruptions. Throws PosixError naming shown.
void writeAll(int descriptor, const std::string &text, const std::filesystem::path &shown);
// Its data on disk before returning. Throws PosixError naming shown.
void flushData(int descriptor, const std::filesystem::path &shown);
// A record appended, flushed when durable.
void appendRecord(int descriptor, const std::string &record, const std::filesystem::path &shown,
                  bool durable);

// What the descriptor holds from where it stands. A journal of a gone owner
// is read as far as it can be; its damaged end is dealt with like a torn record.
std::string readAll(int descriptor);
// The same, throwing PosixError naming shown when a read fails.
std::string readAll(int descriptor, const std::filesystem::path &shown);

// The journal of a gone owner, read as far as it can be; nothing when it cannot be opened.
std::optional<std::string> readOwnerJournal(int folder, std::string_view prefix, const std::string &owner);

// Replaces name in folder by text so that a crash leaves the old file or the
// new one whole: name + ".new" written, fsynced and renamed over name, then the
// folder fsynced. Returns the new file, open for appending. Throws PosixError,
// naming the temporary file (under shownFolder) until it is whole, name after;
// a failed temporary file is left for its owner's files to be removed with.
FileDescriptor replaceAtomically(int folder, const std::string &name, const std::string &text,
                                 const std::filesystem::path &shownFolder);

// Removes the owner's files with these suffixes, then its lock: the lock goes
// last, so that a journal is never found without its lock while it matters.
void removeOwnerFiles(int folder, std::string_view prefix, const std::string &owner,
                      std::initializer_list<std::string_view> suffixes);

} // namespace quillorn::detail
