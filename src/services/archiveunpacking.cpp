#include "services/archiveunpacking.h"

#include "operations/commandererror.h"
#include "operations/operationcontrol.h"
#include "operations/stagingjournal.h"
#include "platform/core/displaytext.h"
#include "platform/posix/archivelibrary.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/removal.h"
#include "platform/posix/renaming.h"
#include "platform/posix/stagingname.h"
#include "services/archivecatalog.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace quillorn {

const std::string ArchiveUnpackJob::tooLargePrefix = "Unpacking stopped: ";

namespace {

using Path = std::filesystem::path;
using Components = std::vector<std::string>;

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The member's place below the folder, or none when it would leave it: an
// absolute name or a ".." component. "." and empty components are dropped.
std::optional<Components> componentsOf(const std::string &path)
{
    if (path.empty() || path.front() == '/')
        return std::nullopt;
    Components components;
    std::size_t start = 0;
    while (start <= path.size()) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string part = path.substr(start, end - start);
        if (part == "..")
            return std::nullopt;
        if (!part.empty() && part != ".")
            components.push_back(part);
        start = end + 1;
    }
    if (components.empty())
        return std::nullopt;
    return components;
}

std::string joined(const Components &components, std::size_t count)
{
    std::string text;
    for (std::size_t index = 0; index < count; ++index)
        text += (index ? "/" : "") + components[index];
    return text;
}

bool selected(const std::vector<std::string> &members, const std::string &path)
{
    if (members.empty())
        return true;
    for (std::string member : members) {
        while (member.ends_with('/'))
            member.pop_back();
        if (path == member ||
            (path.starts_with(member) && path.size() > member.size() && path[member.size()] == '/'))
            return true;
    }
    return false;
}

// Writes members below one open folder, each path component opened without
// following a link, so that no member can reach out of it.
class Unpacker {
public:
    Unpacker(int root, Path shown) : m_root(root), m_shown(std::move(shown)) {}

    // False when the member was left out.
    bool add(const ArchiveMember &member, ArchiveReader &reader, OperationControl &control)
    {
        const std::optional<Components> path = componentsOf(member.path);
        if (!path || member.type == ArchiveMember::Type::other || member.encrypted)
            return false;
        const int parent = folder(*path, path->size() - 1);
        if (parent < 0)
            return false;
        const std::string &leaf = path->back();
        switch (member.type) {
        case ArchiveMember::Type::folder:
            return makeFolder(parent, leaf, *path, member);
        case ArchiveMember::Type::file:
            return writeFile(parent, leaf, member, reader, control);
        case ArchiveMember::Type::symlink:
            if (!clear(parent, leaf) || ::symlinkat(member.linkTarget.c_str(), parent, leaf.c_str()) != 0)
                return false;
            setTimes(parent, leaf, member, AT_SYMLINK_NOFOLLOW);
            return true;
        case ArchiveMember::Type::hardlink:
            return link(parent, leaf, member);
        case ArchiveMember::Type::other:
            break;
        }
        return false;
    }

    // The folders' own modes and times, set last: writing into a folder moves its time.
    void finish()
    {
        m_cache = FileDescriptor();
        m_cachedPath.reset();
        for (auto it = m_folders.rbegin(); it != m_folders.rend(); ++it) {
            const FileDescriptor parent = open(it->path, it->path.size() - 1);
            if (!parent)
                continue;
            ::fchmodat(parent.get(), it->path.back().c_str(), (it->mode & 0777) | 0700, 0);
            if (it->hasModified) {
                const struct timespec times[2] = {{0, UTIME_OMIT}, {it->modified, it->nanoseconds}};
                ::utimensat(parent.get(), it->path.back().c_str(), times, AT_SYMLINK_NOFOLLOW);
            }
        }
    }

    std::int64_t written() const { return m_written; }

private:
    struct FolderTimes {
        Components path;
        std::uint32_t mode;
        bool hasModified;
        std::int64_t modified;
        long nanoseconds;
    };

    // The first `count` components opened one by one below the root; none
    // when one is a link or not a folder. Missing folders are made when `make`.
    FileDescriptor open(const Components &path, std::size_t count, bool make = false) const
    {
        FileDescriptor current(::fcntl(m_root, F_DUPFD_CLOEXEC, 0));
        for (std::size_t index = 0; current && index < count; ++index) {
            const char *name = path[index].c_str();
            int next = ::openat(current.get(), name, folderFlags);
            // A folder the archive only implies gets the mode mkdir gives; the
            // staging folder above keeps everything private until the publish.
            if (next < 0 && errno == ENOENT && make && ::mkdirat(current.get(), name, 0777) == 0)
                next = ::openat(current.get(), name, folderFlags);
            current = FileDescriptor(next);
        }
        return current;
    }

    // The member's folder, kept open for the members that follow in it.
    int folder(const Components &path, std::size_t count)
    {
        std::string key = joined(path, count);
        if (m_cachedPath != key) {
            m_cache = open(path, count, true);
            m_cachedPath = m_cache ? std::optional(std::move(key)) : std::nullopt;
        }
        return m_cache ? m_cache.get() : -1;
    }

    // Makes room for a member that names an item an earlier one made (an
    // archive may hold a name twice; the later wins), never a folder.
    static bool clear(int parent, const std::string &leaf)
    {
        struct stat info {};
        if (::fstatat(parent, leaf.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT;
        return !S_ISDIR(info.st_mode) && ::unlinkat(parent, leaf.c_str(), 0) == 0;
    }

    bool makeFolder(int parent, const std::string &leaf, const Components &path, const ArchiveMember &member)
    {
        if (::mkdirat(parent, leaf.c_str(), 0700) != 0) {
            struct stat info {};
            if (errno != EEXIST || ::fstatat(parent, leaf.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
                !S_ISDIR(info.st_mode))
                return false;
        }
        m_folders.push_back(
            {path, member.mode, member.hasModified, member.modified, member.modifiedNanoseconds});
        return true;
    }

    bool writeFile(int parent, const std::string &leaf, const ArchiveMember &member, ArchiveReader &reader,
                   OperationControl &control)
    {
        if (!clear(parent, leaf))
            return false;
        const FileDescriptor file(
            ::openat(parent, leaf.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!file)
            throwPosixError(m_shown / member.path);
        const char *data = nullptr;
        std::size_t size = 0;
        std::int64_t offset = 0, end = 0;
        while (reader.readBlock(data, size, offset)) {
            for (std::size_t done = 0; done < size;) {
                const ssize_t count = ::pwrite(file.get(), data + done, size - done, off_t(offset + done));
                if (count < 0 && errno == EINTR)
                    continue;
                if (count < 0)
                    throwPosixError(m_shown / member.path);
                done += std::size_t(count);
            }
            end = std::max(end, offset + std::int64_t(size));
            m_written += std::int64_t(size);
            control.check();
        }
        // A sparse file may end in a hole.
        if (member.sizeKnown && member.size > end && ::ftruncate(file.get(), off_t(member.size)) != 0)
            throwPosixError(m_shown / member.path);
        // Never the setuid, setgid or sticky bit of an archive.
        if (::fchmod(file.get(), member.mode & 0777) != 0)
            throwPosixError(m_shown / member.path);
        if (member.hasModified) {
            const struct timespec times[2] = {{0, UTIME_OMIT}, {member.modified, member.modifiedNanoseconds}};
            ::futimens(file.get(), times);
        }
        return true;
    }

    bool link(int parent, const std::string &leaf, const ArchiveMember &member)
    {
        const std::optional<Components> target = componentsOf(member.linkTarget);
        if (!target)
            return false;
        const FileDescriptor from = open(*target, target->size() - 1);
        struct stat info {};
        if (!from || ::fstatat(from.get(), target->back().c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISREG(info.st_mode))
            return false;
        return clear(parent, leaf) &&
               ::linkat(from.get(), target->back().c_str(), parent, leaf.c_str(), 0) == 0;
    }

    static void setTimes(int parent, const std::string &leaf, const ArchiveMember &member, int flags)
    {
        if (!member.hasModified)
            return;
        const struct timespec times[2] = {{0, UTIME_OMIT}, {member.modified, member.modifiedNanoseconds}};
        ::utimensat(parent, leaf.c_str(), times, flags);
    }

    int m_root;
    Path m_shown;
    FileDescriptor m_cache;
    std::optional<std::string> m_cachedPath;
    std::vector<FolderTimes> m_folders;
    std::int64_t m_written = 0;
};

std::string quoted(const std::string &name)
{
    return "\u2018" + name + "\u2019";
}

std::string leftOutMessage(const std::string &folder, const std::vector<std::string> &names)
{
    std::string list;
    const std::size_t shown = std::min<std::size_t>(names.size(), 3);
    for (std::size_t index = 0; index < shown; ++index)
        list += (index ? ", " : "") + quoted(displayText(Path(names[index])).toStdString());
    if (names.size() > shown)
        list += " and " + std::to_string(names.size() - shown) + " more";
    return "Extracted into " + quoted(folder) + " without " + std::to_string(names.size()) +
           (names.size() == 1 ? " member" : " members") +
           " that would have been written outside it, through a link, as a device, or encrypted: " + list +
           ".";
}

// Publishes the staging folder under the first free one of "name", "name (2)", …
// The process's umask, read without setting it (umask(2) would change it for
// every thread for a moment); 022 where the kernel does not say.
mode_t creationMask()
{
    std::FILE *status = std::fopen("/proc/self/status", "re");
    unsigned mask = 022;
    if (status) {
        char line[128];
        while (std::fgets(line, sizeof line, status))
            if (std::sscanf(line, "Umask: %o", &mask) == 1)
                break;
        std::fclose(status);
    }
    return static_cast<mode_t>(mask & 0777);
}

std::string publish(int destination, const std::string &staging, const std::string &name, const Path &shown)
{
    for (int number = 1;; ++number) {
        const std::string candidate = number == 1 ? name : name + " (" + std::to_string(number) + ")";
        try {
            renameWithoutReplacing(destination, staging, destination, candidate, shown / candidate);
            return candidate;
        } catch (const PosixError &error) {
            if (error.code().value() != EEXIST || number >= 10000)
                throw;
        }
    }
}

} // namespace

QString ArchiveUnpackJob::title() const
{
    return QStringLiteral("Extract ") + displayName(archive);
}

Path ArchiveUnpackJob::operator()(OperationControl &control) const
{
    control.check();
    struct stat archiveInfo {};
    if (::stat(archive.c_str(), &archiveInfo) != 0)
        throwPosixError(archive);
    control.total(archiveInfo.st_size);
    control.detail(displayName(archive).toStdString());
    const FileDescriptor folder(::open(destination.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder)
        throwPosixError(destination);
    struct statvfs volume {};
    const std::int64_t free = ::fstatvfs(folder.get(), &volume) == 0
                                  ? std::int64_t(volume.f_bavail) * std::int64_t(volume.f_frsize)
                                  : -1;
    const std::int64_t ratioLimit =
        std::max(largeExpansion, expansionRatio * std::int64_t(archiveInfo.st_size));

    std::optional<ArchiveReader> reader;
    try {
        reader.emplace(archive);
    } catch (const ArchiveError &) {
        throw CommanderError(ArchiveCatalog::unreadable);
    }
    const std::string name = ArchiveCatalog::folderName(archive.filename().string());
    const std::string staging = stagingName();
    const Path absolute = std::filesystem::absolute(destination).lexically_normal();
    const Path stagingPath = absolute / staging;
    StagingJournal::shared().add(stagingPath, absolute / name);
    // Forgotten once gone or published; one that could not be removed stays
    // recorded, for the next start to remove.
    struct Forget {
        const Path &path;
        bool keep = false;
        ~Forget()
        {
            if (!keep)
                StagingJournal::shared().remove(path);
        }
    } forget{stagingPath};
    if (::mkdirat(folder.get(), staging.c_str(), 0700) != 0)
        throwPosixError(destination / name);
    std::vector<std::string> leftOut;
    std::string published;
    try {
        const FileDescriptor root(::openat(folder.get(), staging.c_str(), folderFlags));
        if (!root)
            throwPosixError(stagingPath);
        Unpacker unpacker(root.get(), destination / name);
        ArchiveMember member;
        std::int64_t reported = 0;
        for (;;) {
            control.check();
            try {
                if (!reader->next(member))
                    break;
            } catch (const ArchiveError &) {
                throw CommanderError(ArchiveCatalog::unreadable);
            }
            if (!selected(members, member.path))
                continue;
            const std::int64_t coming = unpacker.written() + (member.sizeKnown ? member.size : 0);
            if (!allowLarge && ((free >= 0 && coming > free) || coming > ratioLimit))
                throw CommanderError(tooLargePrefix + quoted(displayName(archive).toStdString()) +
                                     " expands to more than " +
                                     (free >= 0 && coming > free ? "the free space of the destination"
                                                                 : "100 times its size") +
                                     ".");
            try {
                if (!unpacker.add(member, *reader, control))
                    leftOut.push_back(member.path);
            } catch (const ArchiveError &) {
                if (!member.encrypted && member.type == ArchiveMember::Type::file)
                    throw CommanderError(ArchiveCatalog::unreadable);
                leftOut.push_back(member.path);
            }
            const std::int64_t consumed = reader->consumed();
            control.add(consumed - reported);
            reported = consumed;
        }
        unpacker.finish();
        // Published, the folder is the user's own new folder, not a private staging one.
        if (::fchmod(root.get(), 0777 & ~creationMask()) != 0)
            throwPosixError(stagingPath);
        // Every file and folder on stable storage before the name appears, as a copy's are.
        if (::syncfs(root.get()) != 0)
            throwPosixError(stagingPath);
        control.check();
        published = publish(folder.get(), staging, name, absolute);
    } catch (...) {
        try {
            removeTree(stagingPath, true);
        } catch (...) {
            forget.keep = true;
        }
        throw;
    }
    if (::fsync(folder.get()) != 0 && errno != EINVAL && errno != EBADF)
        throwPosixError(destination);
    if (!leftOut.empty())
        throw CommanderError(leftOutMessage(published, leftOut));
    return absolute / published;
}

} // namespace quillorn
