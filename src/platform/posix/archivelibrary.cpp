#include "platform/posix/archivelibrary.h"

#include "platform/posix/posixerror.h"
#include "platform/posix/writeback.h"

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillorn {

namespace {

constexpr std::size_t readBlockSize = 0x40000;

std::string reason(struct archive *handle, const char *fallback)
{
    const char *text = handle ? archive_error_string(handle) : nullptr;
    return text && *text ? std::string(text) : std::string(fallback);
}

// The library converts and marks names by the thread's locale. Reading in the C
// locale loses every name a ZIP marks as UTF-8 or a 7z keeps as UTF-16, so the
// reader runs under a UTF-8 locale, whatever the user's. Writing in a UTF-8
// locale marks every ZIP name that is not ASCII as UTF-8, even one that is not
// (unzip tools then refuse it), and in the C locale a ZIP or tar keeps the bytes
// unmarked. So each member is written under the locale that describes its name:
// UTF-8 where it is valid UTF-8, else C. Its bytes are kept either way.
class NameLocale {
public:
    explicit NameLocale(locale_t chosen) : m_previous(chosen ? ::uselocale(chosen) : nullptr) {}
    ~NameLocale()
    {
        if (m_previous)
            ::uselocale(m_previous);
    }
    NameLocale(const NameLocale &) = delete;
    NameLocale &operator=(const NameLocale &) = delete;

    static locale_t utf8()
    {
        static const locale_t made = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(nullptr));
        return made;
    }
    static locale_t plain()
    {
        static const locale_t made = ::newlocale(LC_CTYPE_MASK, "C", locale_t(nullptr));
        return made;
    }
    static bool isUtf8(const std::string &text)
    {
        const NameLocale scoped(utf8());
        return std::mbstowcs(nullptr, text.c_str(), 0) != std::size_t(-1);
    }

private:
    locale_t m_previous;
};

// Only the formats the program offers to browse: the library's catch-alls
// ("raw", "mtree", "empty") would take any text file for an archive.
void supportFormats(struct archive *handle)
{
    archive_read_support_filter_all(handle);
    archive_read_support_format_tar(handle);
    archive_read_support_format_gnutar(handle);
    archive_read_support_format_cpio(handle);
    archive_read_support_format_7zip(handle);
    archive_read_support_format_iso9660(handle);
    archive_read_support_format_rar(handle);
    archive_read_support_format_rar5(handle);
    archive_read_support_format_zip(handle);
}

ArchiveMember::Type typeOf(struct archive_entry *entry)
{
    if (archive_entry_hardlink(entry))
        return ArchiveMember::Type::hardlink;
    switch (archive_entry_filetype(entry)) {
    case AE_IFREG:
        return ArchiveMember::Type::file;
    case AE_IFDIR:
        return ArchiveMember::Type::folder;
    case AE_IFLNK:
        return ArchiveMember::Type::symlink;
    default:
        return ArchiveMember::Type::other;
    }
}

} // namespace

struct ArchiveReader::Handle {
    struct archive *archive = nullptr;
    ~Handle()
    {
        if (archive)
            archive_read_free(archive);
    }
};

ArchiveReader::ArchiveReader(const std::filesystem::path &archive) : m_handle(std::make_unique<Handle>())
{
    struct stat info {};
    if (::stat(archive.c_str(), &info) != 0)
        throwPosixError(archive);
    if (S_ISDIR(info.st_mode))
        throwPosixError(archive, EISDIR);
    m_handle->archive = archive_read_new();
    if (!m_handle->archive)
        throw std::bad_alloc();
    supportFormats(m_handle->archive);
    if (archive_read_open_filename(m_handle->archive, archive.c_str(), readBlockSize) != ARCHIVE_OK) {
        if (const int error = archive_errno(m_handle->archive);
            error == ENOENT || error == EACCES || error == EPERM)
            throwPosixError(archive, error);
        throw ArchiveError(reason(m_handle->archive, "Unrecognized archive format"));
    }
}

ArchiveReader::~ArchiveReader() = default;

bool ArchiveReader::next(ArchiveMember &member)
{
    const NameLocale scoped(NameLocale::utf8());
    struct archive_entry *entry = nullptr;
    const int status = archive_read_next_header(m_handle->archive, &entry);
    if (status == ARCHIVE_EOF)
        return false;
    if (status < ARCHIVE_WARN || !entry)
        throw ArchiveError(reason(m_handle->archive, "Damaged archive"));
    // A warning is a name the locale could not convert: the stored bytes are still given.
    const char *path = archive_entry_pathname(entry);
    if (!path)
        path = archive_entry_pathname_utf8(entry);
    member.path = path ? path : "";
    member.type = typeOf(entry);
    member.sizeKnown = archive_entry_size_is_set(entry) != 0;
    member.size = member.sizeKnown ? archive_entry_size(entry) : 0;
    member.hasModified = archive_entry_mtime_is_set(entry) != 0;
    member.modified = member.hasModified ? archive_entry_mtime(entry) : 0;
    member.modifiedNanoseconds = member.hasModified ? archive_entry_mtime_nsec(entry) : 0;
    member.mode = archive_entry_perm(entry) & 07777;
    const char *link = member.type == ArchiveMember::Type::hardlink  ? archive_entry_hardlink(entry)
                       : member.type == ArchiveMember::Type::symlink ? archive_entry_symlink(entry)
                                                                     : nullptr;
    member.linkTarget = link ? link : "";
    member.encrypted = archive_entry_is_encrypted(entry) != 0;
    member.device = member.type == ArchiveMember::Type::other;
    return true;
}

bool ArchiveReader::readBlock(const char *&data, std::size_t &size, std::int64_t &offset)
{
    const void *block = nullptr;
    la_int64_t at = 0;
    const int status = archive_read_data_block(m_handle->archive, &block, &size, &at);
    if (status == ARCHIVE_EOF)
        return false;
    if (status < ARCHIVE_WARN)
        throw ArchiveError(reason(m_handle->archive, "Damaged archive"));
    data = static_cast<const char *>(block);
    offset = at;
    return true;
}

std::int64_t ArchiveReader::consumed() const
{
    return archive_filter_bytes(m_handle->archive, -1);
}

bool ArchiveReader::isZip() const
{
    return archive_format(m_handle->archive) == ARCHIVE_FORMAT_ZIP ||
           (archive_format(m_handle->archive) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_ZIP;
}

bool readableArchive(const std::filesystem::path &archive) noexcept
{
    try {
        ArchiveReader reader(archive);
        ArchiveMember member;
        reader.next(member);
        return true;
    } catch (...) {
        return false;
    }
}

// The archive is flushed before it is published. Its data goes to the disk
// while the rest is still being compressed, so that flush finds little left to
// write, and no more than two windows of it wait in memory at a time.
constexpr off_t writeBackWindow = 16 * 1024 * 1024;
// Fewer, larger writes than the library's 10 KiB tape blocks.
constexpr int writeBlockSize = 0x40000;

struct ArchiveWriter::Handle {
    struct archive *archive = nullptr;
    struct archive_entry *entry = nullptr;
    ArchiveFormat format = ArchiveFormat::zip;
    int descriptor = -1;
    off_t position = 0;
    off_t started = 0; // write-back started for everything before this
    off_t awaited = 0; // and finished before this

    ~Handle()
    {
        if (entry)
            archive_entry_free(entry);
        if (archive)
            archive_write_free(archive);
    }

    static la_ssize_t writeOut(struct archive *archive, void *client, const void *buffer, size_t length)
    {
        auto &self = *static_cast<Handle *>(client);
        const char *data = static_cast<const char *>(buffer);
        std::size_t left = length;
        while (left > 0) {
            const ssize_t count = ::write(self.descriptor, data, left);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0) {
                archive_set_error(archive, errno, "%s", std::strerror(errno));
                return -1;
            }
            data += count;
            left -= std::size_t(count);
            self.position += count;
        }
        if (self.position - self.started >= writeBackWindow) {
            int error = startWriteBack(self.descriptor, self.started, self.position - self.started);
            if (!error && self.started - self.awaited >= writeBackWindow) {
                error = awaitWriteBack(self.descriptor, self.awaited, self.started - self.awaited);
                self.awaited = self.started;
            }
            if (error) {
                archive_set_error(archive, error, "%s", std::strerror(error));
                return -1;
            }
            self.started = self.position;
        }
        return la_ssize_t(length);
    }
};

ArchiveWriter::ArchiveWriter(int descriptor, ArchiveFormat format) : m_handle(std::make_unique<Handle>())
{
    struct archive *handle = m_handle->archive = archive_write_new();
    m_handle->entry = archive_entry_new();
    m_handle->descriptor = descriptor;
    m_handle->format = format;
    if (!handle || !m_handle->entry)
        throw std::bad_alloc();
    int status = ARCHIVE_OK;
    switch (format) {
    case ArchiveFormat::zip:
        status = archive_write_set_format_zip(handle);
        break;
    case ArchiveFormat::sevenZip:
        status = archive_write_set_format_7zip(handle);
        break;
    case ArchiveFormat::tarGz:
        status = archive_write_set_format_pax_restricted(handle);
        if (status == ARCHIVE_OK)
            status = archive_write_add_filter_gzip(handle);
        break;
    case ArchiveFormat::tarXz:
        status = archive_write_set_format_pax_restricted(handle);
        if (status == ARCHIVE_OK)
            status = archive_write_add_filter_xz(handle);
        break;
    case ArchiveFormat::tarZst:
        status = archive_write_set_format_pax_restricted(handle);
        if (status == ARCHIVE_OK)
            status = archive_write_add_filter_zstd(handle);
        break;
    }
    if (status == ARCHIVE_OK)
        status = archive_write_set_bytes_per_block(handle, writeBlockSize);
    // A short last block is fine for a file; tar would pad it to a whole one.
    if (status == ARCHIVE_OK)
        status = archive_write_set_bytes_in_last_block(handle, 1);
    if (status == ARCHIVE_OK)
        status = archive_write_open2(handle, m_handle.get(), nullptr, &Handle::writeOut, nullptr, nullptr);
    if (status != ARCHIVE_OK)
        throw ArchiveError(reason(handle, "Cannot write this archive format"));
}

ArchiveWriter::~ArchiveWriter() = default;

bool ArchiveWriter::holds(const std::string &name) const
{
    return m_handle->format != ArchiveFormat::sevenZip || NameLocale::isUtf8(name);
}

bool ArchiveWriter::keepsHardLinks() const
{
    return m_handle->format != ArchiveFormat::zip && m_handle->format != ArchiveFormat::sevenZip;
}

void ArchiveWriter::add(const ArchiveMember &member, unsigned owner, unsigned group)
{
    if (!holds(member.path) || !holds(member.linkTarget))
        throw ArchiveError("A 7z archive holds only UTF-8 names");
    const bool utf8 = NameLocale::isUtf8(member.path) && NameLocale::isUtf8(member.linkTarget);
    const NameLocale scoped(utf8 ? NameLocale::utf8() : NameLocale::plain());
    struct archive_entry *entry = archive_entry_clear(m_handle->entry);
    archive_entry_copy_pathname(entry, member.path.c_str());
    archive_entry_set_perm(entry, member.mode & 07777);
    archive_entry_set_uid(entry, owner);
    archive_entry_set_gid(entry, group);
    if (member.hasModified)
        archive_entry_set_mtime(entry, member.modified, member.modifiedNanoseconds);
    switch (member.type) {
    case ArchiveMember::Type::folder:
        archive_entry_set_filetype(entry, AE_IFDIR);
        archive_entry_set_size(entry, 0);
        break;
    case ArchiveMember::Type::symlink:
        archive_entry_set_filetype(entry, AE_IFLNK);
        archive_entry_copy_symlink(entry, member.linkTarget.c_str());
        archive_entry_set_size(entry, 0);
        break;
    case ArchiveMember::Type::hardlink:
        if (!keepsHardLinks())
            throw ArchiveError("This archive format does not keep hard links");
        archive_entry_set_filetype(entry, AE_IFREG);
        archive_entry_copy_hardlink(entry, member.linkTarget.c_str());
        archive_entry_set_size(entry, 0);
        break;
    default:
        archive_entry_set_filetype(entry, AE_IFREG);
        archive_entry_set_size(entry, member.size);
        break;
    }
    if (archive_write_header(m_handle->archive, entry) < ARCHIVE_WARN)
        throw ArchiveError(reason(m_handle->archive, "Cannot write the archive"));
}

void ArchiveWriter::write(const char *data, std::size_t size)
{
    while (size > 0) {
        const la_ssize_t written = archive_write_data(m_handle->archive, data, size);
        if (written <= 0)
            throw ArchiveError(reason(m_handle->archive, "Cannot write the archive"));
        data += written;
        size -= std::size_t(written);
    }
}

void ArchiveWriter::finish()
{
    if (archive_write_close(m_handle->archive) != ARCHIVE_OK)
        throw ArchiveError(reason(m_handle->archive, "Cannot write the archive"));
}

} // namespace quillorn
