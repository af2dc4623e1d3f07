#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quillorn {

// The whole contents of a regular file of at most `limit` bytes. A final
// symbolic link is never followed and nothing but a regular file is opened (a
// FIFO would wait for a writer, a device might never end): such an item, or one
// larger than the limit, gives none. Throws PosixError when the item cannot be
// examined or read (a missing file, no permission).
std::optional<std::string> readRegularFile(const std::filesystem::path &file, std::size_t limit);

// Told of the hidden file a write makes next to its target before that file
// exists, and again once it has gone or taken the target's name: a staging
// journal keeps these, so the next start can remove one a killed process left.
struct StagingWatch {
    std::function<void(const std::filesystem::path &staging, const std::filesystem::path &target)> adding;
    std::function<void(const std::filesystem::path &staging)> done;
};

// A file being overwritten in place and the copy of its old bytes that stands
// in for it until the new bytes are flushed: what the next start needs to put a
// killed save right.
struct InPlaceBackup {
    std::filesystem::path backup, target;
    std::uint64_t inode = 0;     // the target's: only that file ever gets the old bytes back
    std::uint64_t oldSize = 0;   // the copy's length
    std::uint64_t newSize = 0;   // of the bytes written in its place
    std::uint64_t newDigest = 0; // contentsDigest of them: a file that holds them got its whole write
};

// Told of the copy an in-place write makes of the old bytes. A killed process
// leaves the copy and its record: the next start gives the file its old bytes
// back (recoverInPlaceWrite). Without `ready` no copy is made.
struct BackupWatch {
    // Where the copy goes when the file's own folder takes no new file (or no
    // more bytes); a private folder of the user's, made when first needed.
    std::filesystem::path spareFolder;
    // Before a copy is made under that name: one left half made is only removed.
    std::function<void(const std::filesystem::path &backup, const std::filesystem::path &target)> adding;
    // Once the copy is whole and flushed, before the file's first byte is
    // overwritten. Must be durable when it returns; throwing stops the save with
    // the file untouched.
    std::function<void(const InPlaceBackup &record)> ready;
    // Once the copy has gone (or was never made).
    std::function<void(const std::filesystem::path &backup)> done;
};

// How replaceContents wrote, or why it did not.
enum class ContentsWrite {
    changedOnDisk, // the file no longer held `expected` (or is no longer a regular file): nothing written
    replaced,      // a complete new file took the old one's place in one rename
    inPlaceLinked, // written into the file itself: it has other hard links, which must see the change
    inPlaceFolderClosed, // written into the file itself: no new file can be made in its folder
    inPlaceMetadata, // written into the file itself: a new file could not get its owner, mode or attributes
};

// Writes `bytes` as the contents of `file` if it still holds exactly `expected`.
//
// Normally a new file is written next to it, given the old one's owner and group
// (where permitted), mode, extended attributes and ACLs, flushed, and renamed
// over it: whenever the process dies, the name holds the old bytes or the new
// ones. Where that would lose something the user relies on (other hard links,
// the owner, an attribute) or the folder takes no new file, the file's own
// bytes are overwritten instead, once the new bytes are all in memory and the
// space for them is reserved and, when `backups` asks for one, a flushed copy of
// the old bytes is on disk, then flushed. If that write fails, the old bytes are
// put back at once; if the process is killed meanwhile, the copy stays for the
// next start.
//
// A final symbolic link is never followed: a link now at that name counts as a
// change. Throws PosixError naming the file when it cannot be read or written
// (a deleted file, a full disk: the old contents stay).
ContentsWrite replaceContents(const std::filesystem::path &file, std::string_view expected,
                              std::string_view bytes, const StagingWatch &watch = {},
                              const BackupWatch &backups = {});

// How replaceContents will write `file`, as far as can be told without writing:
// inPlaceLinked or inPlaceFolderClosed by the very test it makes, else replaced,
// which a volume refusing the new file's owner or mode still turns into
// inPlaceMetadata (only trying shows that). Replaced too when the file cannot
// be examined: then the save itself reports why.
ContentsWrite expectedContentsWrite(const std::filesystem::path &file) noexcept;

// A 64-bit fingerprint of bytes (FNV-1a), the same in every process.
std::uint64_t contentsDigest(std::string_view bytes);

// What recoverInPlaceWrite did with a copy a killed write left.
enum class BackupOutcome {
    missing,    // the copy no longer exists: nothing done
    restored,   // the file was given the old bytes back
    completed,  // the file already held exactly the new bytes and keeps them
    superseded, // the name no longer holds that file: it is left alone
};

struct BackupRecovery {
    BackupOutcome outcome = BackupOutcome::missing;
    // Where the bytes the file held were kept before the old ones went over
    // them; empty when it held the old bytes already.
    std::filesystem::path replaced;
};

// Settles an in-place write a killed process left: unless the file already holds
// exactly the new bytes, the copy's bytes are written back into the file itself
// (keeping its links, owner and mode) and flushed; then the copy is removed.
// A half-written file cannot be told from one another program wrote since, so
// what the file holds, unless it is the old bytes, is first copied whole and
// flushed into a new private file in `keepFolder`.
// Throws PosixError when the copy or the file cannot be read or written, or
// what the file holds cannot be kept (the file and the copy then stay as they
// are), EBADMSG when the copy is not of the recorded length.
BackupRecovery recoverInPlaceWrite(const InPlaceBackup &record, const std::filesystem::path &keepFolder);

// Creates `file` holding `bytes`, never replacing an item of that name: the
// bytes are written and flushed under a hidden name in the same folder, which
// then takes the final name only if it is still free, so the name never shows a
// partial file. Throws PosixError naming the file, EEXIST when the name is taken
// (even by an item created while the bytes were written).
void createFile(const std::filesystem::path &file, std::string_view bytes, const StagingWatch &watch = {});

} // namespace quillorn
