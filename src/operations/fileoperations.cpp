#include "operations/fileoperations.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/detail/composedorder.h"
#include "operations/detail/logtext.h"
#include "operations/detail/posixfile.h"
#include "platform/posix/metadata.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/trash.h"
#include "platform/posix/volume.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <set>

namespace fs = std::filesystem;

namespace quillorn {

using detail::FileDescriptor;
using detail::itemAttributes;

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
    return phase + " failed: " + form.description + " (" + form.domain + " " + std::to_string(form.code) +
           "). See " + AppDiagnostics::shared().fileURL().string();
}

bool sourceChanged(const struct stat &before, const struct stat &after)
{
    // Size and modification time at full precision; a different file number means
    // the name now holds another file (replaced by a rename), which counts too.
    return before.st_size != after.st_size || before.st_mtim.tv_sec != after.st_mtim.tv_sec ||
           before.st_mtim.tv_nsec != after.st_mtim.tv_nsec || before.st_ino != after.st_ino ||
           before.st_dev != after.st_dev;
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

} // namespace

FileOperations::FileManager FileOperations::FileManager::posix()
{
    FileManager manager;
    manager.rename = detail::renameWithoutReplacing;
    manager.flush = [](int descriptor, const Path &item) {
        if (::fsync(descriptor) != 0)
            throwPosixError(item, errno);
    };
    manager.flushVolume = [](int descriptor, const Path &item) {
        if (::syncfs(descriptor) != 0)
            throwPosixError(item, errno);
    };
    manager.copyChunk = detail::copyFileRange;
    return manager;
}

FileOperations::FileOperations(TrashService trash, RemoveService remove, VolumeIsLocalService volumeIsLocal,
                               FileManager manager)
    : m_trash(std::move(trash)), m_remove(std::move(remove)), m_volumeIsLocal(std::move(volumeIsLocal)),
      m_manager(std::move(manager))
{
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
    if (d == s || startsWithFolder(d, s))
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
        // The second test catches a destination that reaches the item's own
        // folder through a link, where replacing would discard the source itself.
        const bool sameItem = standardized(item) == standardized(destination / nameOf(item)) ||
                              resolved(item.parent_path()) == resolved(destination);
        if (sameItem && policy != ConflictPolicy::keepBoth)
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
    AppDiagnostics &log = AppDiagnostics::shared();
    log.record(std::string("TRANSFER BEGIN mode=") + (move ? "move" : "copy") +
               " sources=" + detail::quotedPathList(sources) + " destination=" + destination.string() +
               " policy=" + std::string(rawValue(policy)));
    control.detail("Calculating total size");

    const std::vector<Path> items = plan(sources, destination, policy);
    std::int64_t total = 0;
    for (const Path &item : items)
        total += byteCount(item, control);
    control.total(total);

    std::vector<Path> result;
    for (const Path &item : items)
        if (std::optional<Path> published =
                transferItem(item, destination, move, policy, control, permanentlyRemoveRemoteItems))
            result.push_back(std::move(*published));

    control.detail("Complete");
    log.record("TRANSFER COMPLETE items=" + std::to_string(result.size()) +
               " destination=" + destination.string());
    return result;
}

std::optional<FileOperations::Path> FileOperations::transferItem(const Path &item, const Path &destination,
                                                                 bool move, ConflictPolicy policy,
                                                                 OperationControl &control,
                                                                 bool permanentlyRemoveRemoteItems) const
{
    control.check();
    const std::string name = nameOf(item);
    control.detail("Preparing " + quoted(name));
    Path target = destination / name;
    if (exists(target)) {
        if (policy == ConflictPolicy::skip) {
            control.add(byteCount(item, control));
            return std::nullopt;
        }
        if (policy == ConflictPolicy::keepBoth)
            target = availableName(name, destination);
    }
    // "/." makes lstat look at the folder a linked destination leads to, where the
    // rename would land, not at the link.
    const std::optional<std::uint64_t> itemVolume = volumeIdentifier(item);
    const std::optional<std::uint64_t> destinationVolume = volumeIdentifier(destination / ".");
    if (move && !exists(target) && itemVolume && destinationVolume && *itemVolume == *destinationVolume &&
        renameOnVolume(item, target, control))
        return target;
    return copyAndPublish(item, target, move, policy, control, permanentlyRemoveRemoteItems);
}

bool FileOperations::renameOnVolume(const Path &item, const Path &target, OperationControl &control) const
{
    const std::string phase = "Moving " + quoted(nameOf(item)) + " on the same volume";
    control.detail(phase);
    const std::int64_t bytes = byteCount(item, control);
    try {
        m_manager.rename(item, target);
    } catch (const std::system_error &error) {
        // One device seen through two mounts (a bind mount) refuses the rename: copy instead.
        if (error.code() == std::errc::cross_device_link && exists(item) && !exists(target))
            return false;
        AppDiagnostics::shared().record("TRANSFER FAILED phase=" + phase + " source=" + item.string() +
                                        " destination=" + target.string() +
                                        " error=" + AppDiagnostics::describe(error));
        throw CommanderError(wrappedMessage(phase, error));
    }
    control.add(bytes);
    // The rename has happened; making it durable is best effort, as for any mv.
    try {
        const FileDescriptor folder = detail::openFolder(target.parent_path());
        m_manager.flush(folder.get(), target.parent_path());
    } catch (const std::exception &error) {
        AppDiagnostics::shared().record("TRANSFER FAILED phase=" + phase + " source=" + item.string() +
                                        " destination=" + target.string() +
                                        " error=" + AppDiagnostics::describe(error));
        throw CommanderError(wrappedMessage(phase, error));
    }
    AppDiagnostics::shared().record("TRANSFER ITEM COMPLETE phase=rename target=" + target.string());
    return true;
}

FileOperations::Path FileOperations::copyAndPublish(const Path &item, const Path &target, bool move,
                                                    ConflictPolicy policy, OperationControl &control,
                                                    bool permanentlyRemoveRemoteItems) const
{
    const std::string name = nameOf(item);
    const Fingerprint before = move ? fingerprint(item, control) : Fingerprint();
    const Path staging = target.parent_path() / detail::stagingName();
    std::string phase;
    const auto step = [&](std::string text) {
        phase = std::move(text);
        control.detail(phase);
    };
    try {
        step("Copying " + quoted(name));
        copy(item, staging, control);
        control.check();
        step("Verifying " + quoted(name));
        if (move && fingerprint(item, control) != before)
            throw CommanderError("The source folder changed while copying. The move was stopped and the "
                                 "source was preserved.");
        if (policy == ConflictPolicy::replace && exists(target)) {
            step("Removing the existing destination " + quoted(name));
            discard(target, permanentlyRemoveRemoteItems);
        }
        step("Publishing " + quoted(name) + " at the destination");
        publish(staging, target);
        if (move) {
            step("Removing the copied source " + quoted(name));
            discard(item, permanentlyRemoveRemoteItems);
        }
    } catch (const std::exception &error) {
        detail::removeStaging(staging);
        AppDiagnostics::shared().record("TRANSFER FAILED phase=" + phase + " source=" + item.string() +
                                        " destination=" + target.string() + " staging=" + staging.string() +
                                        " error=" + AppDiagnostics::describe(error));
        if (dynamic_cast<const CancellationError *>(&error))
            throw;
        throw CommanderError(wrappedMessage(phase, error));
    }
    AppDiagnostics::shared().record("TRANSFER ITEM COMPLETE phase=copy target=" + target.string());
    return target;
}

void FileOperations::publish(const Path &staging, const Path &target) const
{
    m_manager.rename(staging, target);
    // The folder entry itself must reach the disk, or a crash could forget the new name.
    const FileDescriptor folder = detail::openFolder(target.parent_path());
    m_manager.flush(folder.get(), target.parent_path());
}

std::int64_t FileOperations::byteCount(const Path &url, OperationControl &control)
{
    control.check();
    const struct stat attributes = itemAttributes(url);
    if (!S_ISDIR(attributes.st_mode))
        return attributes.st_size;
    std::int64_t total = 0;
    for (const Path &entry : detail::folderEntries(url))
        total += byteCount(entry, control);
    return total;
}

void FileOperations::copy(const Path &source, const Path &target, OperationControl &control) const
{
    copyItem(source, target, control, false);
}

void FileOperations::copyItem(const Path &source, const Path &target, OperationControl &control,
                              bool inFolder) const
{
    control.check();
    control.detail("Copying " + quoted(nameOf(source)));
    const struct stat before = itemAttributes(source);
    if (S_ISLNK(before.st_mode)) {
        if (::symlink(detail::linkText(source, before).c_str(), target.c_str()) != 0)
            throwPosixError(target, errno);
        control.add(before.st_size);
    } else if (S_ISDIR(before.st_mode)) {
        copyFolder(source, target, before, control, inFolder);
    } else if (S_ISREG(before.st_mode)) {
        copyFile(source, target, before, control, inFolder);
    } else {
        throw CommanderError("Unsupported special file: " + source.string());
    }
}

void FileOperations::copyFile(const Path &source, const Path &target, const struct stat &before,
                              OperationControl &control, bool inFolder) const
{
    const FileDescriptor output(
        ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!output)
        throw CommanderError("Cannot create " + target.string());
    // O_NONBLOCK: should the name have turned into a pipe since lstat, open must not wait for a writer.
    const FileDescriptor input(
        ::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK));
    if (!input)
        throwPosixError(source, errno);
    struct stat opened {};
    if (::fstat(input.get(), &opened) != 0)
        throwPosixError(source, errno);
    const std::string changed =
        "The source changed during copying: " + nameOf(source) + ". Retry when it is no longer being edited.";
    if (!S_ISREG(opened.st_mode) || opened.st_ino != before.st_ino || opened.st_dev != before.st_dev)
        throw CommanderError(changed);

    for (;;) {
        control.check();
        const std::size_t count = m_manager.copyChunk(input.get(), output.get(), chunkSize, source, target);
        if (count == 0)
            break;
        control.add(static_cast<std::int64_t>(count));
    }
    if (!inFolder)
        m_manager.flush(output.get(), target);
    if (sourceChanged(before, itemAttributes(source)))
        throw CommanderError(changed);
    copyMetadata(source, target, before);
}

void FileOperations::copyFolder(const Path &source, const Path &target, const struct stat &before,
                                OperationControl &control, bool inFolder) const
{
    if (::mkdir(target.c_str(), 0700) != 0)
        throwPosixError(target, errno);
    // Opened before the contents are written: syncfs reports write-back errors
    // that happened after the descriptor was opened (Linux 5.8 and later).
    FileDescriptor folder;
    if (!inFolder)
        folder = detail::openFolder(target);
    for (const Path &entry : detail::folderEntries(source))
        copyItem(entry, target / entry.filename(), control, true);
    copyMetadata(source, target, before);
    if (!inFolder)
        m_manager.flushVolume(folder.get(), target);
}

FileOperations::Fingerprint FileOperations::fingerprint(const Path &url, OperationControl &control)
{
    Fingerprint summary;
    const auto visit = [&](const auto &self, const Path &item) -> void {
        control.check();
        const struct stat attributes = itemAttributes(item);
        summary[item] = typeText(attributes.st_mode) + "|" + std::to_string(attributes.st_size) + "|" +
                        secondsText(attributes.st_mtim.tv_sec) + "|" + std::to_string(attributes.st_ino);
        if (S_ISDIR(attributes.st_mode))
            for (const Path &entry : detail::folderEntries(item))
                self(self, entry);
    };
    visit(visit, url);
    return summary;
}

void FileOperations::copyMetadata(const Path &source, const Path &target, const struct stat &attributes)
{
    AppDiagnostics &log = AppDiagnostics::shared();
    for (const MetadataProblem &problem : quillorn::copyMetadata(source, target, attributes)) {
        if (problem.step == "copyfile")
            log.record("METADATA WARNING copyfile source=" + source.string() +
                       " destination=" + target.string() +
                       " error=" + AppDiagnostics::describe(std::system_error(problem.error)));
        else
            log.record("METADATA WARNING attribute=" + problem.step + " destination=" + target.string() +
                       " error=" + AppDiagnostics::describe(PosixError(problem.error.value(), target)));
    }
}

} // namespace quillorn
