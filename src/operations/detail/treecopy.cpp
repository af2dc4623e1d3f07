#include "operations/detail/treecopy.h"

#include "operations/detail/flushpool.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "platform/posix/metadata.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/unnamedfile.h"
#include "platform/posix/writeback.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace quillorn::detail {

namespace {

std::string quoted(const std::string &name)
{
    return "\u2018" + name + "\u2019";
}

bool sourceChanged(const struct stat &before, const struct stat &after)
{
    // Size and modification time at full precision; a different file number means
    // the name now holds another file (replaced by a rename), which counts too.
    return before.st_size != after.st_size || before.st_mtim.tv_sec != after.st_mtim.tv_sec ||
           before.st_mtim.tv_nsec != after.st_mtim.tv_nsec || before.st_ino != after.st_ino ||
           before.st_dev != after.st_dev;
}

std::string changedMessage(const std::string &name)
{
    return "The source changed during copying: " + name + ". Retry when it is no longer being edited.";
}

// The text of a symbolic link, read whole even if it grew since it was examined.
std::string linkText(const Folder &folder, const Entry &entry)
{
    std::string text(static_cast<std::size_t>(std::max<off_t>(entry.info.st_size, 63)) + 1, '\0');
    for (;;) {
        const ssize_t length = ::readlinkat(folder.fd.get(), entry.name.c_str(), text.data(), text.size());
        if (length < 0)
            throwPosixError(folder / entry.name, errno);
        if (static_cast<std::size_t>(length) < text.size()) {
            text.resize(static_cast<std::size_t>(length));
            return text;
        }
        text.resize(text.size() * 2);
    }
}

// Only a file with fewer blocks than its size can hold holes; looking for them in
// any other file would cost two lseek(2) calls per chunk for nothing.
bool mayHaveHoles(const struct stat &info)
{
    return info.st_blocks * 512 < info.st_size;
}

// Nobody but the owner may look while the data is written, and the owner gets
// no more than the source gives: should the volume then refuse the source's
// mode, the copy is still no more open than the source. (The descriptor is
// writable whatever the mode it created the file with.)
mode_t creationMode(const struct stat &source)
{
    return source.st_mode & 0600;
}

// A big file's data goes to the disk while the rest is still being copied, so its
// flush at the end finds little left to write, and no more than two windows of
// it wait in memory at a time: the copy keeps pace with the disk.
constexpr off_t writeBackWindow = 16 * 1024 * 1024;

struct WriteBack {
    off_t window = writeBackWindow;
    off_t started = 0; // write-back started for everything before this
    off_t awaited = 0; // and finished before this

    void advance(int output, off_t position, const fs::path &target)
    {
        int error = startWriteBack(output, started, position - started);
        if (!error && started - awaited >= window) {
            error = awaitWriteBack(output, awaited, started - awaited);
            awaited = started;
        }
        if (error)
            throwPosixError(target, error);
        started = position;
    }
};

void seekTo(int descriptor, off_t offset, const fs::path &item)
{
    if (::lseek(descriptor, offset, SEEK_SET) < 0)
        throwPosixError(item, errno);
}

} // namespace

std::optional<fs::path> LinkMemory::find(const struct stat &source) const
{
    const auto found = m_first.find({source.st_dev, source.st_ino});
    if (found == m_first.end())
        return std::nullopt;
    const auto &[top, below] = found->second;
    return below.empty() ? fs::path(top) : fs::path(top) / below;
}

void LinkMemory::remember(const struct stat &source, const std::string &top, const fs::path &below)
{
    m_first.try_emplace({source.st_dev, source.st_ino}, top, below);
}

void LinkMemory::renameTop(const std::string &from, const std::string &to)
{
    for (auto it = m_first.begin(); it != m_first.end();) {
        if (it->second.first != from) {
            ++it;
        } else if (to.empty()) {
            it = m_first.erase(it);
        } else {
            it->second.first = to;
            ++it;
        }
    }
}

// Mirrors the source walk in the target: each source folder entered has its
// copy open on the stack, so every new item is made relative to its folder.
class TreeCopy::Visitor : public TreeVisitor {
public:
    Visitor(TreeCopy &copy, const Folder &destination, std::string newName, fs::path shown)
        : m_copy(copy), m_newName(std::move(newName)), m_shown(std::move(shown))
    {
        m_targets.push_back(&destination);
    }

    bool visit(const Folder &folder, const Entry &entry) override
    {
        OperationControl &control = m_copy.m_control;
        control.check();
        control.detail("Copying " + quoted(entry.name));
        const bool top = m_targets.size() == 1 && m_owned.empty();
        const Folder &target = *m_targets.back();
        const std::string name = top ? m_newName : entry.name;
        const fs::path below = top ? fs::path() : m_below / entry.name;
        const mode_t type = entry.info.st_mode & S_IFMT;
        if (type == S_IFDIR) {
            enterFolder(target, name, top);
            if (!top)
                m_below /= entry.name;
            return true;
        }
        if (type == S_IFREG) {
            m_copy.copyFile(folder, entry, target, name, below, shownOf(target, name, top));
        } else if (type == S_IFLNK) {
            if (::symlinkat(linkText(folder, entry).c_str(), target.fd.get(), name.c_str()) != 0)
                throwPosixError(shownOf(target, name, top), errno);
            // A link's own date tells when it was made or last pointed elsewhere (cp -a keeps it).
            if (std::optional<MetadataProblem> problem = copyTimes(target.fd.get(), name, entry.info))
                report({*problem}, folder / entry.name, shownOf(target, name, top));
            control.add(entry.info.st_size);
        } else {
            throw CommanderError("Unsupported special file: " + (folder / entry.name).string());
        }
        control.addItems(1);
        return false;
    }

    void leave(const Folder &folder, const Entry &entry) override
    {
        Folder &target = m_owned.back();
        // A folder's metadata follows its contents, so writing them does not
        // disturb the copied dates, and a read-only mode comes last.
        m_copy.copyMetadata(folder.fd.get(), ".", target, ".", folder.shown, target.shown, entry.info);
        if (m_copy.m_flushEachFile)
            m_copy.flushOnItsOwn(std::move(target.fd), target.shown);
        else if (m_owned.size() == 1)
            m_copy.m_manager.flushVolume(target.fd.get(), target.shown);
        m_owned.pop_back();
        m_targets.pop_back();
        m_copy.m_control.addItems(1);
        if (!m_owned.empty())
            m_below = m_below.parent_path();
    }

private:
    fs::path shownOf(const Folder &target, const std::string &name, bool top) const
    {
        return top ? m_shown : target / name;
    }

    void enterFolder(const Folder &target, const std::string &name, bool top)
    {
        const fs::path shown = shownOf(target, name, top);
        // Owner-only until the contents are in and the source's mode is applied.
        if (::mkdirat(target.fd.get(), name.c_str(), 0700) != 0)
            throw CommanderError("Cannot create " + shown.string() + ": " + std::strerror(errno));
        FileDescriptor opened(
            ::openat(target.fd.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!opened)
            throwPosixError(shown, errno);
        // Opened before the contents are written: syncfs reports the write-back
        // errors that happen after the descriptor was opened.
        m_owned.push_back({std::move(opened), shown});
        m_targets.push_back(&m_owned.back());
    }

    TreeCopy &m_copy;
    std::string m_newName;
    fs::path m_shown;
    fs::path m_below;
    std::vector<const Folder *> m_targets;
    std::deque<Folder> m_owned;
};

TreeCopy::TreeCopy(const FileOperations::FileManager &manager, OperationControl &control, LinkMemory &links)
    : m_manager(manager), m_control(control), m_links(links)
{
}

TreeCopy::~TreeCopy() = default;

void TreeCopy::copy(const Item &source, const Folder &destination, const std::string &newName,
                    const fs::path &shown)
{
    m_destination = &destination;
    m_top = newName;
    // A single file is flushed on its own anyway. A folder's files are flushed
    // together where one syncfs reaches them all, unless other programs have much
    // data waiting to be written: syncfs would wait for all of theirs too, and the
    // files' own flushes, many at once, are then faster.
    const bool folder = S_ISDIR(source.entry.info.st_mode);
    const bool volumeFlush = folder && volumeFlushCoversFiles(destination.fd.get());
    m_othersWriting = m_manager.pendingWriteBack(destination.fd.get()) > busyVolume;
    const bool othersWriting = volumeFlush && m_othersWriting;
    m_flushEachFile = !volumeFlush || othersWriting;
    m_holding = m_heldTooMany = false;
    m_held.clear();
    if (folder && !volumeFlush)
        m_pool = std::make_unique<FlushPool>(m_manager, flushThreads);
    if (folder && othersWriting) {
        // Opened before anything is written: a volume flush through it reports
        // every write-back error from here on. (The destination may be held for
        // naming only, which syncfs refuses.)
        m_volume = FileDescriptor(::openat(destination.fd.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        m_holding = static_cast<bool>(m_volume);
        if (!m_holding)
            m_pool = std::make_unique<FlushPool>(m_manager, localFlushThreads);
    }
    Visitor visitor(*this, destination, newName, shown);
    walk(source, visitor);
    if (m_holding)
        flushHeld(shown);
    else if (m_pool)
        m_pool->finish();
    m_pool.reset();
}

void TreeCopy::flushHeld(const fs::path &shown)
{
    m_holding = false;
    if (m_heldTooMany) {
        m_held.clear(); // closed unflushed: the volume flush covers them
        m_manager.flushVolume(m_volume.get(), shown);
        return;
    }
    m_pool = std::make_unique<FlushPool>(m_manager, localFlushThreads);
    for (auto &[descriptor, item] : m_held)
        m_pool->submit(std::move(descriptor), std::move(item));
    m_held.clear();
    finishRacingVolume(shown);
}

// Other programs' data makes a volume flush slow when they keep writing new
// blocks, and the many flushes of the pool slow when the disk takes each journal
// commit late: which one wins depends on what they write, so both run and the
// first to finish decides. Every file was written before the volume flush
// started, through a folder opened before the copy began, so its success covers
// them all; should it fail, the pool's own flushes name the file.
void TreeCopy::finishRacingVolume(const fs::path &shown)
{
    struct Race {
        std::mutex lock;
        bool done = false;
        bool succeeded = false;
    };
    auto race = std::make_shared<Race>();
    // Left to run on its own when the pool wins: a flush cannot be called off,
    // and it only ever holds its own descriptor and the shared result.
    std::thread([race, flush = m_manager.flushVolume, folder = std::move(m_volume), shown] {
        bool succeeded = false;
        try {
            flush(folder.get(), shown);
            succeeded = true;
        } catch (...) {
        }
        const std::lock_guard guard(race->lock);
        race->done = true;
        race->succeeded = succeeded;
    }).detach();
    while (!m_pool->finishWithin(raceCheck)) {
        const std::lock_guard guard(race->lock);
        if (race->done && race->succeeded)
            return; // the pool's waiting descriptors are closed unflushed with it
    }
}

void TreeCopy::flushOnItsOwn(FileDescriptor descriptor, const fs::path &shown)
{
    if (m_holding) {
        if (m_held.size() < heldFlushes)
            m_held.emplace_back(std::move(descriptor), shown);
        else
            m_heldTooMany = true;
        return;
    }
    if (m_pool)
        m_pool->submit(std::move(descriptor), shown);
    else
        m_manager.flush(descriptor.get(), shown);
}

void TreeCopy::copyFile(const Folder &folder, const Entry &entry, const Folder &target,
                        const std::string &name, const fs::path &below, const fs::path &shown)
{
    const fs::path source = folder / entry.name;
    if (entry.info.st_nlink > 1 && linkToFirstCopy(entry, target, name))
        return;
    FileDescriptor output(::openat(target.fd.get(), name.c_str(),
                                   O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                                   creationMode(entry.info)));
    if (!output)
        throw CommanderError("Cannot create " + shown.string() + ": " + std::strerror(errno));
    fillFile(folder, entry, output.get(), shown);
    copyMetadata(folder.fd.get(), entry.name, target, name, source, shown, entry.info);
    // Flushed after its metadata, so the mode and dates are as durable as the bytes.
    if (m_flushEachFile)
        flushOnItsOwn(std::move(output), shown);
    if (entry.info.st_nlink > 1)
        m_links.remember(entry.info, m_top, below);
}

FileDescriptor TreeCopy::createUnnamed(const Item &source, const Folder &destination)
{
    return createUnnamedFile(destination.fd.get(), creationMode(source.entry.info));
}

void TreeCopy::copyUnnamed(const Item &source, const Folder &destination, int output, const fs::path &shown)
{
    m_destination = &destination;
    m_othersWriting = m_manager.pendingWriteBack(destination.fd.get()) > busyVolume;
    m_flushEachFile = true;
    m_holding = false;
    fillFile(source.parent, source.entry, output, shown);
    report(copyMetadataToFile(source.parent.fd.get(), source.entry.name, output, source.entry.info),
           source.path(), shown);
    m_manager.flush(output, shown);
    m_control.addItems(1);
}

void TreeCopy::fillFile(const Folder &folder, const Entry &entry, int output, const fs::path &shown)
{
    const fs::path source = folder / entry.name;
    // O_NONBLOCK: should the name have turned into a pipe since it was examined,
    // open must not wait for a writer.
    const FileDescriptor input(::openat(folder.fd.get(), entry.name.c_str(),
                                        O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK));
    if (!input)
        throwPosixError(source, errno);
    struct stat opened {};
    if (::fstat(input.get(), &opened) != 0)
        throwPosixError(source, errno);
    if (!S_ISREG(opened.st_mode) || opened.st_ino != entry.info.st_ino || opened.st_dev != entry.info.st_dev)
        throw CommanderError(changedMessage(entry.name));

    copyData(input.get(), output, opened, source, shown);
    if (sourceChanged(entry.info, entryAttributes(folder, entry.name)))
        throw CommanderError(changedMessage(entry.name));
}

// Streams the data in chunks of at most chunkSize at matching offsets, skipping
// the source's holes so a sparse file stays sparse.
void TreeCopy::copyData(int input, int output, const struct stat &opened, const fs::path &source,
                        const fs::path &target)
{
    bool sparse = mayHaveHoles(opened);
    off_t position = 0, dataEnd = 0;
    WriteBack writeBack;
    // Beside other writers, write-back started early queues behind theirs at
    // every window: measured with a 2 GiB file next to dd, the copy took about
    // 1.7 times as long as leaving it all to the kernel and the final flush, as
    // cp does (windows of 128 MiB) or longer (starting without waiting).
    const bool windows = !m_othersWriting;
    for (;;) {
        m_control.check();
        std::size_t limit = FileOperations::chunkSize;
        if (sparse && position >= dataEnd) {
            const off_t data = ::lseek(input, position, SEEK_DATA);
            if (data < 0 && errno == ENXIO)
                break; // only a hole is left
            const off_t hole = data < 0 ? -1 : ::lseek(input, data, SEEK_HOLE);
            if (hole < 0) {
                sparse = false; // the file system cannot tell: copy every byte
                seekTo(input, position, source);
            } else {
                m_control.add(data - position);
                position = data;
                dataEnd = hole;
                seekTo(input, position, source);
                seekTo(output, position, target);
            }
        }
        if (sparse)
            limit = std::min<std::size_t>(limit, static_cast<std::size_t>(dataEnd - position));
        const std::size_t count = m_manager.copyChunk(input, output, limit, source, target);
        if (count == 0) {
            if (!sparse)
                break;
            dataEnd = position; // the file shrank: look again, the change check decides
            continue;
        }
        position += static_cast<off_t>(count);
        m_control.add(static_cast<std::int64_t>(count));
        if (windows && position - writeBack.started >= writeBackWindow)
            writeBack.advance(output, position, target);
    }
    if (sparse) {
        struct stat now {};
        if (::fstat(input, &now) != 0)
            throwPosixError(source, errno);
        if (position < now.st_size) {
            m_control.add(now.st_size - position);
            if (::ftruncate(output, now.st_size) != 0)
                throwPosixError(target, errno);
        }
    }
    // Its flush, by the pool or by the volume, then finds the data on its way;
    // a small file is left to a volume flush, which writes many at once. Beside
    // a busy writer, starting it here would queue the walk behind the disk's
    // throttle for every small file: held files start with their flush.
    if ((m_flushEachFile && !m_holding) || writeBack.started > 0)
        if (const int error = startWriteBack(output, writeBack.started, 0))
            throwPosixError(target, error);
}

bool TreeCopy::linkToFirstCopy(const Entry &entry, const Folder &target, const std::string &name)
{
    const std::optional<fs::path> first = m_links.find(entry.info);
    if (!first)
        return false;
    // A volume without hard links (FAT, many shares) gets a separate copy.
    if (::linkat(m_destination->fd.get(), first->c_str(), target.fd.get(), name.c_str(), 0) != 0)
        return false;
    m_control.add(entry.info.st_size);
    return true;
}

void TreeCopy::copyMetadata(int sourceFolder, const std::string &sourceName, const Folder &target,
                            const std::string &targetName, const fs::path &sourcePath,
                            const fs::path &targetPath, const struct stat &before)
{
    report(quillorn::copyMetadata(sourceFolder, sourceName, target.fd.get(), targetName, before), sourcePath,
           targetPath);
}

void TreeCopy::report(const std::vector<MetadataProblem> &problems, const fs::path &sourcePath,
                      const fs::path &targetPath)
{
    AppDiagnostics &log = AppDiagnostics::shared();
    for (const MetadataProblem &problem : problems) {
        if (problem.step == "copyfile")
            log.record("METADATA WARNING copyfile source=" + logPath(sourcePath) +
                       " destination=" + logPath(targetPath) +
                       " error=" + AppDiagnostics::describe(std::system_error(problem.error)));
        else
            log.record("METADATA WARNING attribute=" + logText(problem.step) +
                       " destination=" + logPath(targetPath) +
                       " error=" + AppDiagnostics::describe(PosixError(problem.error.value(), targetPath)));
    }
}

} // namespace quillorn::detail
