#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

namespace quillorn {

// The one door to the archive library (libarchive): reading tar in all its
// compressions, cpio, 7z, ISO 9660, RAR and ZIP, and writing ZIP, 7z and
// compressed tar. Nothing above this header knows the library. Names travel as
// the bytes the archive stores; no character set is converted.

// The library could not read or write the archive; what() is its own reason.
class ArchiveError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One member as the archive describes it.
struct ArchiveMember {
    enum class Type { file, folder, symlink, hardlink, other };

    std::string path; // as stored: components joined by "/", never converted
    Type type = Type::file;
    std::int64_t size = 0; // of the data; 0 when the archive does not say
    bool sizeKnown = false;
    std::int64_t modified = 0; // seconds since 1970; with modifiedNanoseconds
    long modifiedNanoseconds = 0;
    bool hasModified = false;
    std::uint32_t mode = 0644; // permission bits, setuid, setgid and sticky included
    std::string linkTarget;    // a symbolic link's text, or the member a hard link names
    bool encrypted = false;
    bool device = false; // a character or block device, FIFO or socket (type other)
};

// Reads one archive from start to end, member by member.
class ArchiveReader {
public:
    // Throws PosixError when the file cannot be opened, ArchiveError when no
    // known format is found in it.
    explicit ArchiveReader(const std::filesystem::path &archive);
    ~ArchiveReader();
    ArchiveReader(const ArchiveReader &) = delete;
    ArchiveReader &operator=(const ArchiveReader &) = delete;

    // The next member's description; false past the last. Throws ArchiveError
    // for a damaged or truncated archive.
    bool next(ArchiveMember &member);
    // The current member's data, in pieces: false at its end. `offset` is where
    // the piece goes in the file (holes of sparse files are skipped).
    // Throws ArchiveError, also for a member the library cannot decrypt.
    bool readBlock(const char *&data, std::size_t &size, std::int64_t &offset);
    // Compressed bytes read so far, for progress against the file's size.
    std::int64_t consumed() const;
    // Whether the format found is ZIP.
    bool isZip() const;

private:
    struct Handle;
    std::unique_ptr<Handle> m_handle;
};

// Whether the library reads the file as an archive of a known format: a look
// at its start (and for 7z its end), not a whole read.
bool readableArchive(const std::filesystem::path &archive) noexcept;

enum class ArchiveFormat { zip, tarGz, tarXz, tarZst, sevenZip };

// Writes a new archive into an open file.
class ArchiveWriter {
public:
    // Throws ArchiveError when the library cannot write this format.
    ArchiveWriter(int descriptor, ArchiveFormat format);
    ~ArchiveWriter();
    ArchiveWriter(const ArchiveWriter &) = delete;
    ArchiveWriter &operator=(const ArchiveWriter &) = delete;

    // Whether the format stores this name (or link text) byte for byte: a 7z
    // holds only UTF-8 names, as UTF-16.
    bool holds(const std::string &name) const;
    // Whether a hard link can be stored as one (tar), naming the member stored
    // first, rather than as a second copy of the data (ZIP, 7z).
    bool keepsHardLinks() const;
    // Starts a member; data of a file follows through write(). `owner` and
    // `group` are numeric ids. Throws ArchiveError for a name it does not hold.
    void add(const ArchiveMember &member, unsigned owner, unsigned group);
    void write(const char *data, std::size_t size);
    // Writes the archive's end; throws ArchiveError when it could not.
    void finish();

private:
    struct Handle;
    std::unique_ptr<Handle> m_handle;
};

} // namespace quillorn
