#include "platform/posix/treewalk.h"

#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace quillorn {

namespace {

// The head of the kernel's record (glibc does not declare it); the
// NUL-terminated name follows it.
struct KernelDirent {
    ino64_t inode;
    off64_t offset;
    unsigned short length;
    unsigned char type;
};
constexpr std::size_t direntNameOffset = offsetof(KernelDirent, type) + 1;

constexpr std::size_t listingBufferSize = 32 * 1024;
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// What Options::facts asks of statx: the type bits of the mode and no more than
// the entry's facts (the device comes with every answer).
constexpr unsigned factMask = STATX_TYPE | STATX_SIZE | STATX_BLOCKS | STATX_INO | STATX_NLINK;
constexpr int factFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;

struct Frame {
    FileDescriptor fd;
    std::vector<char> buffer;
    long filled = 0;
    long position = 0;
    std::size_t pathLength = 0; // of this folder's own relative path
};

TreeWalk::Kind kindOfType(unsigned char type)
{
    switch (type) {
    case DT_REG:
        return TreeWalk::Kind::file;
    case DT_DIR:
        return TreeWalk::Kind::directory;
    case DT_LNK:
        return TreeWalk::Kind::symlink;
    default:
        return TreeWalk::Kind::other;
    }
}

TreeWalk::Kind kindOfMode(mode_t mode)
{
    if (S_ISREG(mode))
        return TreeWalk::Kind::file;
    if (S_ISDIR(mode))
        return TreeWalk::Kind::directory;
    if (S_ISLNK(mode))
        return TreeWalk::Kind::symlink;
    return TreeWalk::Kind::other;
}

bool isDotOrDotDot(const char *name)
{
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

// The open folders of the walk (closed however it ends), with reused listing buffers.
class Frames {
public:
    Frame &push(int fd, std::size_t pathLength)
    {
        std::vector<char> buffer;
        if (!m_spare.empty()) {
            buffer = std::move(m_spare.back());
            m_spare.pop_back();
        } else {
            buffer.resize(listingBufferSize);
        }
        m_frames.push_back(Frame{FileDescriptor(fd), std::move(buffer), 0, 0, pathLength});
        return m_frames.back();
    }
    void pop()
    {
        m_spare.push_back(std::move(m_frames.back().buffer));
        m_frames.pop_back();
    }
    bool empty() const { return m_frames.empty(); }
    Frame &top() { return m_frames.back(); }
    Frame &parent() { return m_frames[m_frames.size() - 2]; }
    int depth() const { return int(m_frames.size()); }

private:
    std::vector<Frame> m_frames;
    std::vector<std::vector<char>> m_spare;
};

} // namespace

void TreeWalk::walk(const std::filesystem::path &root, bool skipHidden, Visitor &visitor)
{
    const int rootFd = ::open(root.c_str(), folderFlags & ~O_NOFOLLOW);
    if (rootFd < 0)
        throwPosixError(root);
    walk(Start{rootFd, {}, 0, root.filename().string()}, skipHidden, visitor);
}

int TreeWalk::openStart(const std::filesystem::path &folder, std::int64_t &size)
{
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const int error = errno;
    struct statx own {};
    const bool examined = fd >= 0 ? ::statx(fd, "", AT_EMPTY_PATH, STATX_SIZE, &own) == 0
                                  : ::statx(AT_FDCWD, folder.c_str(), AT_NO_AUTOMOUNT, STATX_SIZE, &own) == 0;
    if (examined)
        size = std::int64_t(own.stx_size);
    errno = error;
    return fd;
}

int TreeWalk::openFolder(int parentFd, const char *name)
{
    return ::openat(parentFd, name, folderFlags);
}

int TreeWalk::openFile(int parentFd, const char *name, std::int64_t &size)
{
    const int fd = ::openat(parentFd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    struct stat status {};
    const bool examined = ::fstat(fd, &status) == 0;
    if (!examined || !S_ISREG(status.st_mode)) {
        const int error = examined ? ENODEV : errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    size = std::int64_t(status.st_size);
    return fd;
}

int TreeWalk::openBelow(int rootFd, std::string_view relativePath)
{
    int fd = ::fcntl(rootFd, F_DUPFD_CLOEXEC, 0);
    std::string component;
    while (fd >= 0 && !relativePath.empty()) {
        const std::size_t slash = relativePath.find('/');
        component.assign(relativePath.substr(0, slash));
        relativePath = slash == std::string_view::npos ? std::string_view() : relativePath.substr(slash + 1);
        const int child = openFolder(fd, component.c_str());
        const int error = errno;
        ::close(fd);
        errno = error;
        fd = child;
    }
    return fd;
}

void TreeWalk::walk(Start start, bool skipHidden, Visitor &visitor)
{
    walk(std::move(start), Options{skipHidden, false, false}, visitor);
}

void TreeWalk::walk(Start start, const Options &options, Visitor &visitor)
{
    Frames frames;
    frames.push(start.fd, start.relativePath.size());
    std::string path = std::move(start.relativePath);
    const int baseDepth = start.depth;
    std::uint64_t startDevice = 0;
    if (options.facts && options.oneVolume) {
        struct statx own {};
        if (::statx(start.fd, "", AT_EMPTY_PATH, STATX_TYPE, &own) != 0) {
            const int error = errno;
            visitor.failed(Entry{start.name, path, baseDepth, Kind::directory, -1}, error);
            return;
        }
        startDevice = makedev(own.stx_dev_major, own.stx_dev_minor);
    }

    while (!frames.empty()) {
        Frame &frame = frames.top();
        if (frame.position >= frame.filled) {
            const long read =
                ::syscall(SYS_getdents64, frame.fd.get(), frame.buffer.data(), frame.buffer.size());
            if (read < 0) {
                const int error = errno;
                path.resize(frame.pathLength);
                const std::size_t slash = path.rfind('/');
                const std::string_view name =
                    frames.depth() == 1
                        ? std::string_view(start.name)
                        : std::string_view(path).substr(slash == std::string::npos ? 0 : slash + 1);
                const int parentFd = frames.depth() > 1 ? frames.parent().fd.get() : -1;
                const Entry folder{name, path, baseDepth + frames.depth() - 1, Kind::directory, parentFd};
                frames.pop();
                if (visitor.failed(folder, error) == Next::stop)
                    return;
                continue;
            }
            if (read == 0) {
                frames.pop();
                continue;
            }
            frame.filled = read;
            frame.position = 0;
        }
        const char *bytes = frame.buffer.data() + frame.position;
        const auto *record = reinterpret_cast<const KernelDirent *>(bytes);
        frame.position += record->length;
        const char *name = bytes + direntNameOffset;
        if (isDotOrDotDot(name) || (options.skipHidden && name[0] == '.'))
            continue;

        path.resize(frame.pathLength);
        if (!path.empty())
            path += '/';
        path += name;
        Entry entry{std::string_view(path).substr(path.size() - std::char_traits<char>::length(name)), path,
                    baseDepth + frames.depth(), kindOfType(record->type), frame.fd.get()};
        if (options.facts) {
            struct statx facts {};
            if (::statx(frame.fd.get(), name, factFlags, factMask, &facts) != 0) {
                if (visitor.failed(entry, errno) == Next::stop)
                    return;
                continue;
            }
            entry.kind = kindOfMode(facts.stx_mode);
            entry.size = std::int64_t(facts.stx_size);
            entry.blocks = facts.stx_blocks;
            entry.inode = facts.stx_ino;
            entry.device = makedev(facts.stx_dev_major, facts.stx_dev_minor);
            entry.links = facts.stx_nlink;
            entry.otherVolume =
                options.oneVolume && entry.kind == Kind::directory && entry.device != startDevice;
        } else if (record->type == DT_UNKNOWN) {
            struct stat status {};
            if (::fstatat(frame.fd.get(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
                if (visitor.failed(entry, errno) == Next::stop)
                    return;
                continue;
            }
            entry.kind = kindOfMode(status.st_mode);
        }
        const Next next = visitor.entry(entry);
        if (next == Next::stop)
            return;
        if (next == Next::prune || entry.kind != Kind::directory || entry.otherVolume)
            continue;
        const int child = openFolder(frame.fd.get(), name);
        if (child < 0) {
            if (visitor.failed(entry, errno) == Next::stop)
                return;
            continue;
        }
        frames.push(child, path.size()); // `frame` is not used past this point
    }
}

void WalkFailure::throwIfFailed() const
{
    if (m_error)
        throw PosixError(m_error, m_item);
}

} // namespace quillorn
