#include "operations/fileoperations.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/detail/composedorder.h"
#include "operations/detail/folderwalk.h"
#include "operations/detail/logtext.h"
#include "operations/detail/posixfile.h"
#include "operations/detail/sha256.h"
#include "operations/detail/spelling.h"
#include "operations/detail/treecopy.h"
#include "operations/stagingjournal.h"
#include "operations/userfacing.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/removal.h"
#include "platform/posix/renaming.h"
#include "platform/posix/stagingname.h"
#include "platform/posix/unnamedfile.h"
#include "platform/posix/writeback.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <mutex>
#include <set>

namespace fs = std::filesystem;

namespace quillorn {

using detail::FileDescriptor;

namespace {

std::string quoted(const std::string &name)
{
    return "\u2018" + name + "\u2019";
}

std::string nameOf(const fs::path &item)
{
    return item.filename().string();
}

// No "." or ".." components and no trailing separator, links left alone.
fs::path standardized(const fs::path &item)
{
    fs::path normal = item.lexically_normal();
    if (normal.has_relative_path() && normal.filename().empty())
        normal = normal.parent_path();
    return normal;
}

// Links resolved as far as the item exists, then standardised.
fs::path resolved(const fs::path &item)
{
    std::error_code error;
    const fs::path canonical = fs::weakly_canonical(item, error);
    return standardized(error ? item : canonical);
}

bool startsWithFolder(const fs::path &item, const fs::path &folder)
{
    const std::string &text = item.native();
    const std::string prefix = folder.native() == "/" ? "/" : folder.native() + "/";
    return text.size() > prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

std::string wrappedMessage(const std::string &phase, const std::exception &error)
{
    const AppDiagnostics::ErrorForm form = AppDiagnostics::form(error);
    return phase + " failed: " + userFacingText(error) + " (" + form.domain + " " +
           std::to_string(form.code) + "). See " + AppDiagnostics::shared().fileURL().string();
}

std::string typeText(mode_t mode)
{
    if (S_ISREG(mode))
        return "regular";
    if (S_ISDIR(mode))
        return "directory";
    if (S_ISLNK(mode))
        return "symbolicLink";
    return "other";
}

std::string secondsText(std::time_t seconds)
{
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char text[40];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S +0000", &utc));
}

// A staging item is removed whatever it holds (folders made read-only by their
// copied modes included), but never beyond its own volume.
void removeStaging(const fs::path &staging) noexcept
{
    try {
        removeTree(staging, true);
    } catch (const std::exception &error) {
        AppDiagnostics::shared().record("REMOVE FAILED path=" + detail::logPath(staging) +
                                        " error=" + AppDiagnostics::describe(error));
    }
}

bool sameItem(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether target is the source itself reached another way: the same entry through
// a bind mount or a linked folder, a hard link of it, the same name in another
// letter case on a case-insensitive volume, or a link to it. Replacing the target
// would then throw away the source (cp: "are the same file").
bool reachesSameItem(const fs::path &source, const fs::path &target)
{
    struct stat item {
    }, own{}, followed{};
    if (::lstat(source.c_str(), &item) != 0 || ::lstat(target.c_str(), &own) != 0)
        return false;
    if (sameItem(item, own))
        return true;
    if (!S_ISLNK(item.st_mode) && S_ISLNK(own.st_mode))
        return ::stat(target.c_str(), &followed) == 0 && sameItem(item, followed);
    // Some FUSE file systems number an item afresh for every spelling of its path.
    return item.st_dev == own.st_dev && (item.st_mode & S_IFMT) == (own.st_mode & S_IFMT) &&
           detail::listedSpelling(source) == detail::listedSpelling(target);
}

// Whether folder is the source folder itself or lies inside it when both are
// compared as items, not as paths: a bind mount or another mount of the same
// volume shows the source under a path that shares nothing with its own.
bool insideOf(const fs::path &folder, const fs::path &source)
{
    struct stat item {
    }, level{};
    if (::stat(source.c_str(), &item) != 0 || !S_ISDIR(item.st_mode))
        return false;
    for (fs::path at = folder;; at = at.parent_path()) {
        if (::stat(at.c_str(), &level) == 0 && sameItem(item, level))
            return true;
        if (!at.has_relative_path())
            return false;
    }
}

// A file larger than the process may write (ulimit -f) must fail that write with
// EFBIG, which the transfer reports and cleans up after, instead of the default
// SIGXFSZ ending the whole program with a staging item left behind.
void ignoreFileSizeSignal()
{
    static std::once_flag once;
    std::call_once(once, [] { std::signal(SIGXFSZ, SIG_IGN); });
}

// What will appear under the final name, or nothing when it cannot be read: the
// seal only helps a later run recognise the item, so it never fails a transfer.
std::string copySeal(const fs::path &item, OperationControl &control,
                     FileOperations::SealScope scope = FileOperations::SealScope::tree)
{
    try {
        return FileOperations::seal(item, control, false, scope);
    } catch (const CancellationError &) {
        throw;
    } catch (const std::exception &) {
        return {};
    }
}

// A measuring visitor: the bytes below a folder.
class ByteCounter : public detail::TreeVisitor {
public:
    explicit ByteCounter(OperationControl &control) : m_control(control) {}
    bool visit(const Folder &, const detail::Entry &entry) override
    {
        m_control.check();
        if (!S_ISDIR(entry.info.st_mode))
            m_total += entry.info.st_size;
        ++m_items;
        return true;
    }
    std::int64_t total() const { return m_total; }
    std::int64_t items() const { return m_items; }

private:
    OperationControl &m_control;
    std::int64_t m_total = 0;
    std::int64_t m_items = 0;
};

class Fingerprinter : public detail::TreeVisitor {
public:
    explicit Fingerprinter(OperationControl &control) : m_control(control) {}
    bool visit(const Folder &folder, const detail::Entry &entry) override
    {
        m_control.check();
        const struct stat &info = entry.info;
        m_summary[folder / entry.name] = typeText(info.st_mode) + "|" + std::to_string(info.st_size) + "|" +
                                         secondsText(info.st_mtim.tv_sec) + "|" + std::to_string(info.st_ino);
        return true;
    }
    FileOperations::Fingerprint take() { return std::move(m_summary); }

private:
    OperationControl &m_control;
    FileOperations::Fingerprint m_summary;
};

// What a seal covers of one entry, below the sealed item by its path there.
std::string sealRecord(std::string below, const struct stat &info, bool changeTimes)
{
    std::string record = std::move(below);
    record.push_back('\0');
    const auto field = [&record](auto value) {
        record.append(reinterpret_cast<const char *>(&value), sizeof value);
    };
    field(static_cast<std::uint32_t>(info.st_mode & S_IFMT));
    field(static_cast<std::int64_t>(info.st_size));
    field(static_cast<std::int64_t>(info.st_mtim.tv_sec));
    field(static_cast<std::int64_t>(info.st_mtim.tv_nsec));
    field(static_cast<std::uint64_t>(info.st_ino));
    if (changeTimes) {
        field(static_cast<std::int64_t>(info.st_ctim.tv_sec));
        field(static_cast<std::int64_t>(info.st_ctim.tv_nsec));
    }
    return record;
}

std::string sealDigest(const std::vector<std::string> &records)
{
    detail::Sha256 digest;
    for (const std::string &record : records) {
        // Each record's length first, so no two lists of records digest alike.
        const std::uint64_t length = record.size();
        digest.add({reinterpret_cast<const char *>(&length), sizeof length});
        digest.add(record);
    }
    return digest.hex();
}

// copySeal of a file that has no name yet: what seal() will say of it once named.
std::string copySeal(int descriptor)
{
    struct stat info {};
    if (::fstat(descriptor, &info) != 0)
        return {};
    return sealDigest({sealRecord({}, info, false)});
}

// Collects what a seal covers of every entry, then digests it in path order, so
// that the order a volume lists a folder in does not matter.
class Sealer : public detail::TreeVisitor {
public:
    Sealer(OperationControl &control, const fs::path &top, bool changeTimes, bool wholeTree)
        : m_control(control), m_top(top.native()), m_changeTimes(changeTimes), m_wholeTree(wholeTree)
    {
    }
    bool visit(const Folder &folder, const detail::Entry &entry) override
    {
        m_control.check();
        const std::string path = (folder / entry.name).native();
        m_records.push_back(sealRecord(path.size() > m_top.size() ? path.substr(m_top.size()) : std::string(),
                                       entry.info, m_changeTimes));
        return m_wholeTree;
    }
    std::string digest()
    {
        std::sort(m_records.begin(), m_records.end());
        return sealDigest(m_records);
    }

private:
    OperationControl &m_control;
    const std::string m_top;
    const bool m_changeTimes, m_wholeTree;
    std::vector<std::string> m_records;
};

} // namespace

// What one transfer call shares between its items.
struct FileOperations::Run {
    Folder destination; // held for naming only, so a drop box works too
    bool move;
    ConflictPolicy policy;
    OperationControl &control;
    bool permanentlyRemoveRemoteItems;
    detail::LinkMemory links;
};

FileOperations::FileManager FileOperations::FileManager::posix()
{
    FileManager manager;
    manager.rename = [](const Folder &from, const std::string &fromName, const Folder &to,
                        const std::string &toName) {
        renameWithoutReplacing(from.fd.get(), fromName, to.fd.get(), toName, from / fromName);
    };
    manager.name = [](int descriptor, const Folder &to, const std::string &toName) {
        if (const int error = nameUnnamedFile(descriptor, to.fd.get(), toName))
            throwPosixError(to / toName, error);
    };
    manager.flush = [](int descriptor, const Path &item) {
        if (::fsync(descriptor) != 0)
            throwPosixError(item, errno);
    };
    manager.flushVolume = [](int descriptor, const Path &item) {
        if (::syncfs(descriptor) != 0)
            throwPosixError(item, errno);
    };
    manager.pendingWriteBack = [](int) { return quillorn::pendingWriteBack(); };
    manager.copyChunk = detail::copyFileRange;
    return manager;
}

FileOperations::FileOperations(TrashService trash, RemoveService remove, VolumeIsLocalService volumeIsLocal,
                               FileManager manager)
    : m_trash(std::move(trash)), m_remove(std::move(remove)), m_volumeIsLocal(std::move(volumeIsLocal)),
      m_manager(std::move(manager))
{
}

FileOperations FileOperations::checkingRemovals(std::function<void(const Path &item)> check) const
{
    FileOperations checked = *this;
    checked.m_trash = [trash = m_trash, check](const Path &item) {
        check(item);
        return trash(item);
    };
    checked.m_remove = [remove = m_remove, check](const Path &item) {
        check(item);
        remove(item);
    };
    return checked;
}

bool FileOperations::exists(const Path &url)
{
    struct stat attributes {};
    return ::lstat(url.c_str(), &attributes) == 0;
}

FileOperations::Path FileOperations::child(const std::string &name, const Path &folder)
{
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of(std::string("/:\0", 3)) != std::string::npos)
        throw CommanderError("Enter a single valid file or folder name.");
    Path candidate = folder / name;
    if (exists(candidate))
        throw CommanderError("An item named " + quoted(name) + " already exists.");
    return candidate;
}

FileOperations::Path FileOperations::availableName(const std::string &name, const Path &folder)
{
    if (!exists(folder / name))
        return folder / name;
    // A leading dot starts a hidden name, not an extension; a trailing dot has none after it.
    const std::size_t dot = name.rfind('.');
    const bool hasExtension = dot != std::string::npos && dot > 0 && dot + 1 < name.size();
    const std::string base = hasExtension ? name.substr(0, dot) : name;
    const std::string extension = hasExtension ? name.substr(dot) : std::string();
    for (unsigned long long n = 2;; ++n) {
        Path candidate = folder / (base + " (" + std::to_string(n) + ")" + extension);
        if (!exists(candidate))
            return candidate;
    }
}

void FileOperations::validate(const Path &source, const Path &destination)
{
    const Path s = resolved(source);
    const Path d = resolved(destination);
    if (d == s || startsWithFolder(d, s) || insideOf(d, source))
        throw CommanderError("Cannot transfer a folder into itself.");
}

std::vector<FileOperations::Path> FileOperations::plan(const std::vector<Path> &sources,
                                                       const Path &destination, ConflictPolicy policy)
{
    std::vector<Path> items;
    for (const Path &source : sources)
        items.push_back(standardized(source));
    std::sort(items.begin(), items.end());
    items.erase(std::unique(items.begin(), items.end()), items.end());
    // UTF-8 byte order of the composed form is code-point order of the composed form;
    // names that are not UTF-8 still order totally by their bytes.
    std::vector<std::pair<std::string, Path>> keyed;
    keyed.reserve(items.size());
    for (Path &item : items)
        keyed.emplace_back(detail::composedForm(item.native()), std::move(item));
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto &a, const auto &b) {
        return a.first != b.first ? a.first < b.first : a.second.native() < b.second.native();
    });
    items.clear();
    for (auto &entry : keyed)
        items.push_back(std::move(entry.second));

    if (policy == ConflictPolicy::stop) {
        std::set<std::string> names;
        for (const Path &item : items)
            if (!names.insert(nameOf(item)).second)
                throw CommanderError("Selected items have duplicate destination names. Choose Keep both or "
                                     "separate the transfers.");
    }
    for (const Path &item : items) {
        if (!item.is_absolute() || !destination.is_absolute())
            throw CommanderError("Only mounted filesystem URLs are supported.");
        validate(item, destination);
        const fs::path target = destination / nameOf(item);
        const bool same = standardized(item) == standardized(target) || reachesSameItem(item, target);
        if (same && policy != ConflictPolicy::keepBoth)
            throw CommanderError("Source and destination are the same item.");
        if (policy == ConflictPolicy::stop)
            child(nameOf(item), destination);
        for (const Path &other : items)
            if (startsWithFolder(item, other))
                throw CommanderError("Select either a folder or its children, not both.");
    }
    return items;
}

std::vector<FileOperations::Path> FileOperations::transfer(const std::vector<Path> &sources,
                                                           const Path &destination, bool move,
                                                           ConflictPolicy policy,
                                                           bool permanentlyRemoveRemoteItems) const
{
    OperationControl control;
    return transfer(sources, destination, move, policy, control, permanentlyRemoveRemoteItems);
}

std::vector<FileOperations::Path> FileOperations::transfer(const std::vector<Path> &sources,
                                                           const Path &destination, bool move,
                                                           ConflictPolicy policy, OperationControl &control,
                                                           bool permanentlyRemoveRemoteItems) const
{
    ignoreFileSizeSignal();
    AppDiagnostics &log = AppDiagnostics::shared();
    log.record(std::string("TRANSFER BEGIN mode=") + (move ? "move" : "copy") +
               " sources=" + detail::quotedPathList(sources) +
               " destination=" + detail::logPath(destination) + " policy=" + std::string(rawValue(policy)));
    control.detail("Calculating total size");

    const std::vector<Path> items = plan(sources, destination, policy);
    Amount total;
    for (const Path &item : items) {
        const Amount counted = transferAmount(item, destination, move, policy, control);
        total.bytes += counted.bytes;
        total.items += counted.items;
    }
    control.total(total.bytes);
    control.totalItems(total.items);

    Run run{detail::openFolderForNames(destination), move, policy, control, permanentlyRemoveRemoteItems, {}};
    std::vector<Path> result;
    for (const Path &item : items)
        if (std::optional<Path> published = transferItem(run, item))
            result.push_back(std::move(*published));

    control.detail("Complete");
    log.record("TRANSFER COMPLETE items=" + std::to_string(result.size()) +
               " destination=" + detail::logPath(destination));
    return result;
}

std::optional<FileOperations::Path> FileOperations::transferItem(Run &run, const Path &path) const
{
    run.control.check();
    const std::string name = nameOf(path);
    run.control.detail("Preparing " + quoted(name));
    const Path &destination = run.destination.shown;
    Path target = destination / name;
    if (exists(target)) {
        if (run.policy == ConflictPolicy::skip) {
            const Amount skipped = amount(path, run.control);
            run.control.add(skipped.bytes);
            run.control.addItems(skipped.items);
            return std::nullopt;
        }
        if (run.policy == ConflictPolicy::keepBoth)
            target = availableName(name, destination);
    }
    const detail::Item item = detail::openItem(path);
    // The folder a linked destination leads to is where the rename would land.
    struct stat destinationInfo {};
    if (::fstat(run.destination.fd.get(), &destinationInfo) != 0)
        throwPosixError(destination, errno);
    const std::string targetName = target.filename().native();
    if (run.move && !exists(target) && item.entry.info.st_dev == destinationInfo.st_dev &&
        renameOnVolume(run, item, targetName))
        return target;
    return copyAndPublish(run, item, targetName);
}

bool FileOperations::renameOnVolume(Run &run, const detail::Item &item, const std::string &targetName) const
{
    const Path source = item.path(), target = run.destination / targetName;
    const std::string phase = "Moving " + quoted(item.entry.name) + " on the same volume";
    run.control.detail(phase);
    const Amount moved = readableAmount(source, run.control);
    run.control.publishing({source, {}, target, {}, copySeal(source, run.control, SealScope::itemOnly)});
    try {
        m_manager.rename(item.parent, item.entry.name, run.destination, targetName);
    } catch (const std::system_error &error) {
        // One device seen through two mounts (a bind mount) refuses the rename: copy instead.
        if (error.code() == std::errc::cross_device_link && exists(source) && !exists(target))
            return false;
        AppDiagnostics::shared().record(
            "TRANSFER FAILED phase=" + detail::logText(phase) + " source=" + detail::logPath(source) +
            " destination=" + detail::logPath(target) + " error=" + AppDiagnostics::describe(error));
        throw CommanderError(wrappedMessage(phase, error));
    }
    run.control.add(moved.bytes);
    run.control.addItems(moved.items);
    flushFolder(run.destination);
    run.control.published(source, target);
    AppDiagnostics::shared().record("TRANSFER ITEM COMPLETE phase=rename target=" + detail::logPath(target));
    return true;
}

FileOperations::Path FileOperations::copyAndPublish(Run &run, const detail::Item &item,
                                                    const std::string &targetName) const
{
    const std::string &name = item.entry.name;
    const Path source = item.path(), target = run.destination / targetName;
    OperationControl &control = run.control;
    // Sealed with change times and to the nanosecond: a file rewritten with the
    // same size within the same second must not be published stale and the
    // edited source thrown away.
    const std::string before = run.move ? seal(source, control, true) : std::string();
    const std::string stagingName = quillorn::stagingName();
    const Path staging = run.destination / stagingName;
    // A lone file is written with no name where the volume can make one: nothing
    // is left to clear away after a crash, so no journal of it is flushed first
    // (beside other writers every flush waits behind their data). The second
    // name of a file already copied in this transfer is a hard link instead.
    const struct stat &info = item.entry.info;
    const bool unnamedPossible = S_ISREG(info.st_mode) && (info.st_nlink == 1 || !run.links.find(info));
    FileDescriptor unnamed;
    StagingJournal &journal = StagingJournal::shared();
    bool journaled = false;
    std::string phase;
    bool published = false;
    const auto step = [&](std::string text) {
        phase = std::move(text);
        control.detail(phase);
    };
    try {
        step("Copying " + quoted(name));
        detail::TreeCopy copy(m_manager, control, run.links);
        if (unnamedPossible)
            unnamed = detail::TreeCopy::createUnnamed(item, run.destination);
        if (unnamed) {
            copy.copyUnnamed(item, run.destination, unnamed.get(), target);
        } else {
            // Known before it exists, so a start after a crash can clear it away.
            journal.add(staging, target);
            journaled = true;
            copy.copy(item, run.destination, stagingName, target);
        }
        control.check();
        step("Verifying " + quoted(name));
        const std::string verified = run.move ? seal(source, control, true) : std::string();
        if (verified != before)
            throw CommanderError("The source folder changed while copying. The move was stopped and the "
                                 "source was preserved.");
        if (run.policy == ConflictPolicy::replace && exists(target)) {
            // Checked again here: the plan's check is a moment old.
            if (reachesSameItem(source, target))
                throw CommanderError("Source and destination are the same item.");
            step("Removing the existing destination " + quoted(name));
            discard(target, run.permanentlyRemoveRemoteItems);
        }
        step("Publishing " + quoted(name) + " at the destination");
        // On record before the rename: should the program be killed right after
        // it, the next run knows the item under the final name as this copy. (An
        // unnamed copy is recorded under the staging name it would have had, so
        // the record still tells a copy from an item moved by a rename.)
        control.publishing({source, staging, target, verified,
                            unnamed ? copySeal(unnamed.get()) : copySeal(staging, control)});
        try {
            if (unnamed)
                m_manager.name(unnamed.get(), run.destination, targetName);
            else
                m_manager.rename(run.destination, stagingName, run.destination, targetName);
        } catch (const std::system_error &error) {
            // Named after the item the user expects, not the hidden staging name.
            throw PosixError(error.code().value(), target);
        }
        published = true;
        if (journaled)
            journal.remove(staging);
        if (!unnamed)
            run.links.renameTop(stagingName, targetName);
        else if (info.st_nlink > 1)
            run.links.remember(info, targetName, {});
        flushFolder(run.destination);
        control.published(source, target);
        if (run.move) {
            step("Removing the copied source " + quoted(name));
            discard(source, run.permanentlyRemoveRemoteItems);
        }
    } catch (const std::exception &error) {
        if (!published && journaled) {
            run.links.renameTop(stagingName, {});
            removeStaging(staging);
            journal.remove(staging);
        }
        AppDiagnostics::shared().record(
            "TRANSFER FAILED phase=" + detail::logText(phase) + " source=" + detail::logPath(source) +
            " destination=" + detail::logPath(target) +
            " staging=" + (unnamed ? std::string("unnamed") : detail::logPath(staging)) +
            " error=" + AppDiagnostics::describe(error));
        if (dynamic_cast<const CancellationError *>(&error))
            throw;
        throw CommanderError(wrappedMessage(phase, error));
    }
    AppDiagnostics::shared().record("TRANSFER ITEM COMPLETE phase=copy target=" + detail::logPath(target));
    return target;
}

void FileOperations::flushFolder(const Folder &folder) const
{
    try {
        const FileDescriptor readable(::openat(folder.fd.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!readable)
            throwPosixError(folder.shown, errno);
        m_manager.flush(readable.get(), folder.shown);
    } catch (const std::exception &error) {
        AppDiagnostics::shared().record(
            "METADATA WARNING flush destination=" + detail::logPath(folder.shown) +
            " error=" + AppDiagnostics::describe(error));
    }
}

std::int64_t FileOperations::byteCount(const Path &url, OperationControl &control)
{
    return amount(url, control).bytes;
}

FileOperations::Amount FileOperations::amount(const Path &url, OperationControl &control)
{
    control.check();
    const detail::Item item = detail::openItem(url);
    if (!S_ISDIR(item.entry.info.st_mode))
        return {item.entry.info.st_size, 1};
    ByteCounter counter(control);
    walk(detail::openChildFolder(item.parent, item.entry), counter);
    return {counter.total(), counter.items() + 1};
}

std::int64_t FileOperations::transferByteCount(const Path &item, const Path &destination, bool move,
                                               ConflictPolicy policy, OperationControl &control)
{
    return transferAmount(item, destination, move, policy, control).bytes;
}

FileOperations::Amount FileOperations::transferAmount(const Path &item, const Path &destination, bool move,
                                                      ConflictPolicy policy, OperationControl &control)
{
    // The same test transferItem makes for its rename, from the paths alone.
    struct stat source {
    }, folder{};
    const bool renamed = move && ::lstat(item.c_str(), &source) == 0 &&
                         ::stat(destination.c_str(), &folder) == 0 && source.st_dev == folder.st_dev &&
                         (policy == ConflictPolicy::keepBoth || !exists(destination / nameOf(item)));
    return renamed ? readableAmount(item, control) : amount(item, control);
}

namespace {

void addReadableBelow(const Folder &folder, OperationControl &control, FileOperations::Amount &total)
{
    std::vector<detail::Entry> entries;
    try {
        entries = detail::folderEntries(folder);
    } catch (const PosixError &) {
        return;
    }
    for (const detail::Entry &entry : entries) {
        control.check();
        ++total.items;
        if (!S_ISDIR(entry.info.st_mode)) {
            total.bytes += entry.info.st_size;
            continue;
        }
        std::optional<Folder> child;
        try {
            child.emplace(detail::openChildFolder(folder, entry));
        } catch (const PosixError &) {
            continue;
        }
        addReadableBelow(*child, control, total);
    }
}

} // namespace

FileOperations::Amount FileOperations::readableAmount(const Path &url, OperationControl &control)
{
    control.check();
    const detail::Item item = detail::openItem(url);
    Amount total{0, 1};
    if (!S_ISDIR(item.entry.info.st_mode))
        return {item.entry.info.st_size, 1};
    try {
        addReadableBelow(detail::openChildFolder(item.parent, item.entry), control, total);
    } catch (const PosixError &) {
        // A folder that cannot be opened is moved whole all the same.
    }
    return total;
}

void FileOperations::copy(const Path &source, const Path &target, OperationControl &control) const
{
    const detail::Item item = detail::openItem(source);
    const Folder folder = detail::openFolderForNames(target.parent_path());
    detail::LinkMemory links;
    detail::TreeCopy(m_manager, control, links).copy(item, folder, target.filename().native(), target);
}

FileOperations::Fingerprint FileOperations::fingerprint(const Path &url, OperationControl &control)
{
    Fingerprinter fingerprinter(control);
    walk(detail::openItem(url), fingerprinter);
    return fingerprinter.take();
}

std::string FileOperations::seal(const Path &url, OperationControl &control, bool changeTimes,
                                 SealScope scope)
{
    const Path top = standardized(url);
    Sealer sealer(control, top, changeTimes, scope == SealScope::tree);
    walk(detail::openItem(top), sealer);
    return sealer.digest();
}

} // namespace quillorn
