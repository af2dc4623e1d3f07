#pragma once

#include "services/zipentry.h"

#include <QByteArray>
#include <QString>
#include <filesystem>
#include <string>
#include <vector>

namespace quillorn {

class OperationControl;

// Reads the archives that are not ZIP (tar in all its compressions, cpio, 7z,
// ISO 9660, RAR) through the archive library, the way ArchiveTools reads ZIP
// through unzip: the members with their size and date, and one member's bytes
// in memory, bounded by the same limits. Stateless and blocking: called from
// background work.
class ArchiveCatalog {
public:
    using Path = std::filesystem::path;

    ArchiveCatalog() = delete;

    // How a file is browsed: not as an archive, through unzip, or through the library.
    enum class Kind { none, zip, other };
    // Decided by the file's first bytes (a tar.gz renamed still opens), then by
    // its name: a file named as an archive that cannot be read still opens the
    // sheet, which then says so. ZIP goes to unzip, as always.
    static Kind kind(const Path &file);

    // The members in archive order. Throws CommanderError "Cannot read this
    // archive. It may be damaged or of an unsupported format." and
    // "Archive output exceeds the supported size limit." past 8 MiB of names.
    static std::vector<ZipEntry> list(const Path &archive);
    // The bytes of the member whose stored name is `bytes`: CommanderError
    // "‘NAME’ is encrypted and cannot be read." for an encrypted one, the size
    // limit message past 16 MiB, "This member name cannot be streamed safely."
    // for a folder.
    static QByteArray member(const std::string &bytes, const Path &archive);

    // The folder an archive unpacks into: its name without the archive's
    // extensions ("photos.tar.gz" -> "photos").
    static std::string folderName(const std::string &archiveName);

    static const std::string unreadable;
};

} // namespace quillorn
