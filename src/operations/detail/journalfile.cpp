#include "operations/detail/journalfile.h"

#include "platform/posix/ownerlocks.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/privatefolder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace fs = std::filesystem;

namespace quillorn::detail {
namespace {

std::string readUntilFailure(int descriptor, const fs::path *shown)
{
    std::string text;
    char buffer[16384];
    for (ssize_t count; (count = ::read(descriptor, buffer, sizeof buffer)) != 0;) {
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            if (shown)
                throwPosixError(*shown);
            break;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

} // namespace

std::string ownerFileName(std::string_view prefix, const std::string &owner, std::string_view suffix)
{
    std::string name(prefix);
    name += owner;
    name += suffix;
    return name;
}

void OwnerFiles::open(const fs::path &path, std::string_view prefix, const std::string &owner)
{
    if (!folder)
        folder = openPrivateFolder(path);
    if (!lock) {
        const std::string name = ownerFileName(prefix, owner, ".lock");
        lock = takeLock(folder.get(), name, path / name);
    }
}

void forEachGoneOwner(int folder, std::string_view prefix, const std::string &self,
                      const std::function<void(const std::string &, FileDescriptor &)> &visit)
{
    for (const std::string &owner : ownersIn(folder, prefix)) {
        if (owner == self)
            continue;
        std::optional<FileDescriptor> lock = lockOfGoneOwner(folder, prefix, owner);
        if (lock)
            visit(owner, *lock);
    }
}

FileDescriptor openJournalFolder(const fs::path &path)
{
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

FileDescriptor openForReading(int folder, const std::string &name)
{
    return FileDescriptor(::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
}

void writeAll(int descriptor, const std::string &text, const fs::path &shown)
{
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throwPosixError(shown, count < 0 ? errno : EIO);
        written += static_cast<std::size_t>(count);
    }
}

void flushData(int descriptor, const fs::path &shown)
{
    if (::fdatasync(descriptor) != 0)
        throwPosixError(shown);
}

void appendRecord(int descriptor, const std::string &record, const fs::path &shown, bool durable)
{
    writeAll(descriptor, record, shown);
    if (durable)
        flushData(descriptor, shown);
}

std::string readAll(int descriptor)
{
    return readUntilFailure(descriptor, nullptr);
}

std::string readAll(int descriptor, const fs::path &shown)
{
    return readUntilFailure(descriptor, &shown);
}

std::optional<std::string> readOwnerJournal(int folder, std::string_view prefix, const std::string &owner)
{
    const FileDescriptor file = openForReading(folder, ownerFileName(prefix, owner, ".journal"));
    if (!file)
        return std::nullopt;
    return readAll(file.get());
}

FileDescriptor replaceAtomically(int folder, const std::string &name, const std::string &text,
                                 const fs::path &shownFolder)
{
    const std::string fresh = name + ".new";
    FileDescriptor file(::openat(folder, fresh.c_str(),
                                 O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        throwPosixError(shownFolder / fresh);
    writeAll(file.get(), text, shownFolder / fresh);
    if (::fsync(file.get()) != 0 || ::renameat(folder, fresh.c_str(), folder, name.c_str()) != 0 ||
        ::fsync(folder) != 0)
        throwPosixError(shownFolder / name);
    return file;
}

void removeOwnerFiles(int folder, std::string_view prefix, const std::string &owner,
                      std::initializer_list<std::string_view> suffixes)
{
    for (const std::string_view suffix : suffixes)
        ::unlinkat(folder, ownerFileName(prefix, owner, suffix).c_str(), 0);
    ::unlinkat(folder, ownerFileName(prefix, owner, ".lock").c_str(), 0);
}

} // namespace quillorn::detail
