#pragma once

#include "services/zipentry.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace quillorn {

class OperationControl;

// Reads ZIP archives without unpacking them, through the system's unzip run as
// a child process: the member names, and the bytes of one member in memory.
// Output is gathered in 64 KiB reads and bounded before each append, so a
// listing never holds more than 8 MiB and a member more than 16 MiB, whatever
// the archive claims. Stateless and blocking: called from background work.
class ArchiveTools {
public:
    using Path = std::filesystem::path;

    ArchiveTools() = delete;

    static constexpr std::int64_t listingLimit = 0x800000;
    static constexpr std::int64_t memberLimit = 0x1000000;
    static constexpr std::size_t readChunk = 0x10000;
    static inline const char *const unzip = "/usr/bin/unzip";

    // Every byte `executable` writes to standard output, at most `limit` of
    // them. Its standard error is discarded. Throws the launch error as
    // PosixError, CommanderError "Archive output exceeds the supported size
    // limit." past the limit, "Cannot read this ZIP. It may be encrypted,
    // damaged, or unsupported." when it exits with another status than 0, and
    // CancellationError between reads. The child is gone when this returns or throws.
    static QByteArray command(const std::string &executable, const std::vector<std::string> &arguments,
                              std::int64_t limit, const OperationControl &control);
    static QByteArray command(const std::string &executable, const std::vector<std::string> &arguments,
                              std::int64_t limit);

    // The members in the order unzip lists them. Throws CommanderError "ZIP
    // names must use UTF-8." and "ZIP contains duplicate names and cannot be
    // browsed safely." (names equal under canonical equivalence), besides the
    // errors of command.
    static std::vector<ZipEntry> list(const Path &archive);

    // The uncompressed bytes of one member. Names unzip would read as a pattern
    // or an option, and folder entries, are refused with CommanderError "This
    // member name cannot be streamed safely." before any process starts.
    static QByteArray member(const QString &name, const Path &archive);

    // The listing output as entries (split at line feeds, a CR LF pair not
    // being one), with the checks of list.
    static std::vector<ZipEntry> entries(const QByteArray &listing);
    // Whether member refuses the name.
    static bool refused(const QString &name);

private:
    // command's work, handing each chunk to `consume` as it is read.
    static void stream(const std::string &executable, const std::vector<std::string> &arguments,
                       std::int64_t limit, const OperationControl &control,
                       const std::function<void(QByteArrayView)> &consume);
};

} // namespace quillorn
