#include "platform/posix/filecontents.h"

#include "platform/posix/filedescriptor.h"
#include "platform/posix/hugepages.h"
#include "platform/posix/metadata.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/privatefolder.h"
#include "platform/posix/renaming.h"
#include "platform/posix/stagingname.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillorn {

namespace {

using Path = std::filesystem::path;

constexpr std::size_t writeChunk = 0x100000;

// O_NONBLOCK: opening a FIFO that was put in the file's place must not wait for a writer.
constexpr int readFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool sameItem(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool untouched(const struct stat &before, const struct stat &now)
{
    return sameItem(before, now) && before.st_size == now.st_size &&
           before.st_mtim.tv_sec == now.st_mtim.tv_sec && before.st_mtim.tv_nsec == now.st_mtim.tv_nsec;
}

// Up to `limit` + 1 bytes, so that a file that grew past the limit shows it.
std::string readAll(int descriptor, std::size_t expected, std::size_t limit, const Path &shown)
{
    std::string bytes;
    bytes.reserve(std::min(expected, limit) + 1);
    adviseHugePages(bytes.data(), bytes.capacity());
    bytes.resize(std::min(expected, limit) + 1);
    std::size_t filled = 0;
    for (;;) {
        if (filled == bytes.size()) {
            if (bytes.size() > limit)
                break;
            bytes.resize(std::min(bytes.size() * 2, limit + 1));
        }
        const ssize_t count = ::read(descriptor, bytes.data() + filled, bytes.size() - filled);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throwPosixError(shown);
        if (count == 0)
            break;
        filled += std::size_t(count);
    }
    bytes.resize(filled);
    return bytes;
}

void writeAll(int descriptor, std::string_view bytes, off_t offset, const Path &shown)
{
    while (!bytes.empty()) {
        const ssize_t count = ::pwrite(descriptor, bytes.data(), std::min(bytes.size(), writeChunk), offset);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throwPosixError(shown);
        bytes.remove_prefix(std::size_t(count));
        offset += count;
    }
}

void flush(int descriptor, const Path &shown)
{
    if (::fsync(descriptor) != 0)
        throwPosixError(shown);
}

// A hidden name next to `target`, told to the watch before anything is made
// under it and again when this goes: by then the item has been renamed or
// removed, or was never made. A killed process leaves it in the journal.
class Staged {
public:
    Staged(const Path &target, const StagingWatch &watch) : m_name(stagingName()), m_watch(watch)
    {
        const Path absolute = std::filesystem::absolute(target).lexically_normal();
        m_path = absolute.parent_path() / m_name;
        if (m_watch.adding)
            m_watch.adding(m_path, absolute);
    }
    ~Staged()
    {
        if (m_watch.done)
            m_watch.done(m_path);
    }
    Staged(const Staged &) = delete;
    Staged &operator=(const Staged &) = delete;

    const char *name() const { return m_name.c_str(); }

private:
    const std::string m_name;
    const StagingWatch &m_watch;
    Path m_path;
};

// The old bytes in a file of their own, for as long as the file itself holds
// neither them nor the new ones whole. Made beside the file when its folder
// takes it, else in the watch's spare folder; recorded before it is made and
// again once it is whole; removed (and forgotten) when this goes unless kept.
class Backup {
public:
    Backup(int folder, bool besideFile, const Path &target, const struct stat &file, std::string_view old,
           std::string_view fresh, const BackupWatch &watch)
        : m_watch(watch)
    {
        // Without a record nobody would look for the copy after a crash, and
        // a failed write puts back the old bytes from memory.
        if (!watch.ready)
            return;
        const Path absolute = std::filesystem::absolute(target).lexically_normal();
        int error = besideFile ? make(folder, absolute.parent_path(), absolute, old) : EACCES;
        if (error != 0 && !watch.spareFolder.empty()) {
            m_spare = openPrivateFolder(watch.spareFolder);
            error = make(m_spare.get(), watch.spareFolder, absolute, old);
        }
        if (error != 0)
            throwPosixError(m_path.empty() ? absolute : m_path, error);
        try {
            watch.ready({m_path, absolute, std::uint64_t(file.st_ino), old.size(), fresh.size(),
                         contentsDigest(fresh)});
        } catch (...) {
            remove();
            throw;
        }
    }
    ~Backup()
    {
        if (!m_kept)
            remove();
    }
    Backup(const Backup &) = delete;
    Backup &operator=(const Backup &) = delete;

    // The file holds neither the old bytes nor the new ones: the copy and its
    // record stay for the next start.
    void keep() { m_kept = true; }

private:
    // 0, or the errno that kept the copy from being made whole here.
    int make(int folder, const Path &folderPath, const Path &target, std::string_view old)
    {
        m_name = stagingName();
        m_path = folderPath / m_name;
        if (m_watch.adding)
            m_watch.adding(m_path, target);
        const FileDescriptor copy(
            ::openat(folder, m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!copy) {
            const int error = errno;
            if (m_watch.done)
                m_watch.done(m_path);
            return error;
        }
        m_folder = folder;
        try {
            writeAll(copy.get(), old, 0, m_path);
            flush(copy.get(), m_path);
            // Its name must survive a power cut as surely as its bytes.
            if (::fsync(folder) != 0 && errno != EBADF && errno != EINVAL)
                throwPosixError(m_path);
        } catch (const PosixError &error) {
            remove();
            return error.code().value();
        }
        return 0;
    }

    void remove()
    {
        if (m_folder < 0)
            return;
        // Forgotten even if the unlink fails: a record left live would give this
        // file these old bytes again at the next start, over later saves.
        ::unlinkat(m_folder, m_name.c_str(), 0);
        m_folder = -1;
        if (m_watch.done)
            m_watch.done(m_path);
    }

    const BackupWatch &m_watch;
    FileDescriptor m_spare;
    int m_folder = -1; // where the copy is, while it exists
    std::string m_name;
    Path m_path;
    bool m_kept = false;
};

// Writes bytes over the start of the open file and cuts it to their length.
void overwrite(int file, std::string_view bytes, off_t oldSize, const Path &shown)
{
    writeAll(file, bytes, 0, shown);
    if (off_t(bytes.size()) < oldSize && ::ftruncate(file, off_t(bytes.size())) != 0)
        throwPosixError(shown);
    flush(file, shown);
}

// Why a new file cannot take the old one's place, where that shows without
// trying: the one rule both a save and the forecast of it follow. A volume
// that refuses a new file's owner or mode shows it only when one is made.
ContentsWrite inPlaceNeed(int folder, const struct stat &file)
{
    if (file.st_nlink > 1)
        return ContentsWrite::inPlaceLinked;
    // Making a file needs write and search permission on its folder, for the
    // user the process acts as (not the one who started it).
    if (::faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) != 0 && (errno == EACCES || errno == EPERM))
        return ContentsWrite::inPlaceFolderClosed;
    return ContentsWrite::replaced;
}

ContentsWrite writeInPlace(int folder, const std::string &name, const struct stat &before,
                           std::string_view old, std::string_view bytes, ContentsWrite method,
                           const Path &shown, const BackupWatch &backups)
{
    const FileDescriptor file(
        ::openat(folder, name.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        if (errno == ELOOP)
            return ContentsWrite::changedOnDisk;
        throwPosixError(shown);
    }
    struct stat now {};
    if (::fstat(file.get(), &now) != 0)
        throwPosixError(shown);
    if (!untouched(before, now))
        return ContentsWrite::changedOnDisk;
    // Claim the space first: when the disk is full this fails before one old byte is overwritten.
    if (off_t(bytes.size()) > before.st_size &&
        ::fallocate(file.get(), FALLOC_FL_KEEP_SIZE, 0, off_t(bytes.size())) != 0 && errno != EOPNOTSUPP &&
        errno != ENOSYS)
        throwPosixError(shown);
    Backup backup(folder, method != ContentsWrite::inPlaceFolderClosed, shown, now, old, bytes, backups);
    try {
        overwrite(file.get(), bytes, before.st_size, shown);
    } catch (...) {
        // The old bytes are still in memory, the same as the copy's: put back at once,
        // so the disk again holds what the document last saw and a retry is not refused.
        try {
            overwrite(file.get(), old, std::max(off_t(bytes.size()), before.st_size), shown);
        } catch (...) {
            backup.keep();
        }
        throw;
    }
    return method;
}

// The new file next to the old one, with the old one's metadata and new times.
// None when it cannot carry all of that: the caller then writes in place.
bool prepareReplacement(int folder, const std::string &name, const std::string &temporary, int descriptor,
                        const struct stat &before, std::string_view bytes, const Path &shown)
{
    writeAll(descriptor, bytes, 0, shown);
    if (!copyMetadata(folder, name, folder, temporary, before).empty())
        return false;
    struct stat made {};
    if (::fstat(descriptor, &made) != 0 || made.st_uid != before.st_uid || made.st_gid != before.st_gid)
        return false;
    // copyMetadata carried the old times; a saved file is modified now.
    if (::futimens(descriptor, nullptr) != 0)
        throwPosixError(shown);
    flush(descriptor, shown);
    return true;
}

ContentsWrite replaceThroughNewFile(int folder, const std::string &name, const struct stat &before,
                                    std::string_view old, std::string_view bytes, const Path &shown,
                                    const StagingWatch &watch, const BackupWatch &backups)
{
    const Staged staged(shown, watch);
    const std::string temporary = staged.name();
    const FileDescriptor made(
        ::openat(folder, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!made) {
        if (errno == EACCES || errno == EPERM || errno == EROFS)
            return writeInPlace(folder, name, before, old, bytes, ContentsWrite::inPlaceFolderClosed, shown,
                                backups);
        throwPosixError(shown);
    }
    try {
        if (!prepareReplacement(folder, name, temporary, made.get(), before, bytes, shown)) {
            ::unlinkat(folder, temporary.c_str(), 0);
            return writeInPlace(folder, name, before, old, bytes, ContentsWrite::inPlaceMetadata, shown,
                                backups);
        }
        // The last look before the old file goes: what changed while the new one was written is kept.
        struct stat now {};
        if (::fstatat(folder, name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0)
            throwPosixError(shown);
        if (!untouched(before, now)) {
            ::unlinkat(folder, temporary.c_str(), 0);
            return ContentsWrite::changedOnDisk;
        }
        if (::renameat(folder, temporary.c_str(), folder, name.c_str()) != 0)
            throwPosixError(shown);
    } catch (...) {
        ::unlinkat(folder, temporary.c_str(), 0);
        throw;
    }
    // The rename itself is durable once the folder is flushed.
    if (::fsync(folder) != 0 && errno != EBADF && errno != EINVAL)
        throwPosixError(shown);
    return ContentsWrite::replaced;
}

// Whether the open file holds exactly `bytes`, from its start.
bool holds(int file, const struct stat &info, std::string_view bytes, const Path &shown)
{
    if (std::uint64_t(info.st_size) != bytes.size())
        return false;
    if (::lseek(file, 0, SEEK_SET) != 0)
        throwPosixError(shown);
    return readAll(file, bytes.size(), bytes.size(), shown) == bytes;
}

// Everything the open file holds, copied into a new file of the user's alone
// in `folder` and flushed, name and all: whatever the file is about to lose
// can then be found there. Returns that file's path.
Path keepContents(int file, const Path &folder, const Path &target)
{
    const FileDescriptor into = openPrivateFolder(folder);
    // Named after the target (cut to leave room, never hidden), so the user recognises it.
    std::string name = target.filename().string().substr(0, 160) + ".replaced-" +
                       stagingName().substr(std::string_view(".quillorn-").size());
    if (name.starts_with('.'))
        name = "_" + name;
    const Path kept = folder / name;
    const FileDescriptor made(
        ::openat(into.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!made)
        throwPosixError(kept);
    try {
        std::string chunk(writeChunk, '\0');
        for (off_t offset = 0;;) {
            const ssize_t count = ::pread(file, chunk.data(), chunk.size(), offset);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                throwPosixError(target);
            if (count == 0)
                break;
            writeAll(made.get(), std::string_view(chunk.data(), std::size_t(count)), offset, kept);
            offset += count;
        }
        flush(made.get(), kept);
        flush(into.get(), folder);
    } catch (...) {
        ::unlinkat(into.get(), name.c_str(), 0);
        throw;
    }
    return kept;
}

FileDescriptor openFolder(const Path &folder)
{
    FileDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor) // a folder we may enter but not list still takes files
        descriptor = FileDescriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor)
        throwPosixError(folder);
    return descriptor;
}

} // namespace

std::optional<std::string> readRegularFile(const Path &file, std::size_t limit)
{
    struct stat before {};
    if (::lstat(file.c_str(), &before) != 0)
        throwPosixError(file);
    if (!S_ISREG(before.st_mode) || std::uintmax_t(before.st_size) > limit)
        return std::nullopt;
    const FileDescriptor descriptor(::open(file.c_str(), readFlags));
    if (!descriptor) {
        if (errno == ELOOP)
            return std::nullopt; // became a link since
        throwPosixError(file);
    }
    struct stat opened {};
    if (::fstat(descriptor.get(), &opened) != 0)
        throwPosixError(file);
    if (!S_ISREG(opened.st_mode) || !sameItem(before, opened))
        return std::nullopt;
    std::string bytes = readAll(descriptor.get(), std::size_t(opened.st_size), limit, file);
    if (bytes.size() > limit)
        return std::nullopt;
    return bytes;
}

ContentsWrite replaceContents(const Path &file, std::string_view expected, std::string_view bytes,
                              const StagingWatch &watch, const BackupWatch &backups)
{
    const FileDescriptor folder = openFolder(file.parent_path());
    const std::string name = file.filename().string();
    const FileDescriptor current(::openat(folder.get(), name.c_str(), readFlags));
    if (!current) {
        if (errno == ELOOP)
            return ContentsWrite::changedOnDisk;
        throwPosixError(file);
    }
    struct stat before {};
    if (::fstat(current.get(), &before) != 0)
        throwPosixError(file);
    if (!S_ISREG(before.st_mode) || std::uintmax_t(before.st_size) != expected.size())
        return ContentsWrite::changedOnDisk;
    if (readAll(current.get(), expected.size(), expected.size(), file) != expected)
        return ContentsWrite::changedOnDisk;
    if (const ContentsWrite need = inPlaceNeed(folder.get(), before); need != ContentsWrite::replaced)
        return writeInPlace(folder.get(), name, before, expected, bytes, need, file, backups);
    return replaceThroughNewFile(folder.get(), name, before, expected, bytes, file, watch, backups);
}

ContentsWrite expectedContentsWrite(const Path &file) noexcept
{
    try {
        const FileDescriptor folder = openFolder(file.parent_path());
        const std::string name = file.filename().string();
        struct stat info {};
        // A file this user cannot write at all is not saved in any way: nothing to forecast.
        if (::fstatat(folder.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISREG(info.st_mode) || ::faccessat(folder.get(), name.c_str(), W_OK, AT_EACCESS) != 0)
            return ContentsWrite::replaced;
        return inPlaceNeed(folder.get(), info);
    } catch (...) {
        return ContentsWrite::replaced;
    }
}

std::uint64_t contentsDigest(std::string_view bytes)
{
    std::uint64_t digest = 0xcbf29ce484222325u;
    for (const char byte : bytes) {
        digest ^= std::uint8_t(byte);
        digest *= 0x100000001b3u;
    }
    return digest;
}

BackupRecovery recoverInPlaceWrite(const InPlaceBackup &record, const Path &keepFolder)
{
    const FileDescriptor copy(::open(record.backup.c_str(), readFlags));
    if (!copy) {
        if (errno == ENOENT)
            return {BackupOutcome::missing, {}};
        throwPosixError(record.backup);
    }
    BackupRecovery result{BackupOutcome::superseded, {}};
    const FileDescriptor file(
        ::open(record.target.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file && errno != ENOENT && errno != ELOOP)
        throwPosixError(record.target);
    struct stat info {};
    if (file && ::fstat(file.get(), &info) != 0)
        throwPosixError(record.target);
    if (file && S_ISREG(info.st_mode) && std::uint64_t(info.st_ino) == record.inode) {
        const std::string now = std::uint64_t(info.st_size) == record.newSize
                                    ? readAll(file.get(), record.newSize, record.newSize, record.target)
                                    : std::string();
        if (std::uint64_t(info.st_size) == record.newSize && now.size() == record.newSize &&
            contentsDigest(now) == record.newDigest) {
            result.outcome = BackupOutcome::completed;
        } else {
            const std::string old = readAll(copy.get(), record.oldSize, record.oldSize, record.backup);
            if (old.size() != record.oldSize)
                throwPosixError(record.backup, EBADMSG);
            if (!holds(file.get(), info, old, record.target)) {
                result.replaced = keepContents(file.get(), keepFolder, record.target);
                overwrite(file.get(), old, info.st_size, record.target);
            }
            result.outcome = BackupOutcome::restored;
        }
    }
    if (::unlink(record.backup.c_str()) != 0 && errno != ENOENT)
        throwPosixError(record.backup);
    return result;
}

void createFile(const Path &file, std::string_view bytes, const StagingWatch &watch)
{
    const FileDescriptor folder = openFolder(file.parent_path());
    const Staged staged(file, watch);
    const std::string temporary = staged.name();
    const FileDescriptor made(::openat(folder.get(), temporary.c_str(),
                                       O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (!made)
        throwPosixError(file);
    try {
        writeAll(made.get(), bytes, 0, file);
        flush(made.get(), file);
        renameWithoutReplacing(folder.get(), temporary, folder.get(), file.filename().string(), file);
    } catch (...) {
        ::unlinkat(folder.get(), temporary.c_str(), 0);
        throw;
    }
    if (::fsync(folder.get()) != 0 && errno != EBADF && errno != EINVAL)
        throwPosixError(file);
}

} // namespace quillorn
