#pragma once

#include <QString>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

class OperationControl;

// The queue job that unpacks a whole archive, or some of its members, of any
// format the archive library reads (ZIP too) into a new folder named after it
// in `destination`: "photos.tar.gz" becomes "photos", or "photos (2)" when that
// is taken. The folder is built under a hidden staging name, recorded in the
// staging journal, made durable and published by one rename that never
// replaces, so nothing shows half unpacked and a crash leaves only a staging
// item that the next start removes.
//
// Nothing is written outside that folder: absolute names, ".." components and
// names reached through a link or a file an earlier member made are left out,
// every component being opened without following links; a link is stored as
// it is and never followed; devices, FIFOs and sockets are not made, nor
// setuid, setgid or sticky bits; a hard link becomes a hard link when what it
// names is inside. What was left out is told, by name, once the rest is published.
struct ArchiveUnpackJob {
    using Path = std::filesystem::path;

    Path archive;
    Path destination;
    // Stored names to take, each with what lies below it; empty: every member.
    std::vector<std::string> members = {};
    // Unpacking past the destination's free space, or past 1 GiB and 100 times
    // the archive's size, stops with a question unless the user agreed already.
    bool allowLarge = false;

    // "Extract photos.tar.gz".
    QString title() const;
    // The published folder. Throws CommanderError (unreadable archive, members
    // left out, too large), PosixError and CancellationError; on a throw before
    // the publishing rename nothing is left in the destination.
    Path operator()(OperationControl &control) const;

    static constexpr std::int64_t largeExpansion = std::int64_t(1) << 30;
    static constexpr std::int64_t expansionRatio = 100;
    // The start of the message that stops a large unpacking, so that the
    // window can recognise it and ask.
    static const std::string tooLargePrefix;
};

} // namespace quillorn
