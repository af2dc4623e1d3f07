#pragma once

#include <QString>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quillorn {

enum class ArchiveFormat;
class OperationControl;

// The queue job that packs items into a new archive in `destination`: ZIP,
// tar.gz, tar.xz, tar.zst or 7z, chosen by the name's extension. Each item is
// stored under its own name with everything below it, walked once by
// descriptor; names are kept as bytes, links as links (never followed), modes,
// owners and modification times as they are; FIFOs and devices are left out.
// The archive is written under a hidden staging name (in the staging journal),
// flushed, and published by one rename that never replaces.
struct ArchivePackJob {
    using Path = std::filesystem::path;

    std::vector<Path> items;
    Path destination;
    std::string name; // the archive's file name, its extension naming the format

    // "Compress photos.tar.gz".
    QString title() const;
    // The archive made. Throws CommanderError (an unknown format, a name that
    // is taken), PosixError, CancellationError; nothing is left on a throw.
    Path operator()(OperationControl &control) const;

    // The format the name's extension asks for, if it is one of the five.
    static std::optional<ArchiveFormat> formatOf(const std::string &name);
    // The name offered for the items: the one item's name, or that of the
    // folder holding them, followed by `extension` (".tar.gz").
    static std::string suggestedName(const std::vector<Path> &items, const std::string &extension);
    static const std::vector<std::string> extensions;
};

} // namespace quillorn
