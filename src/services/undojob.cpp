#include "services/undojob.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/fileoperations.h"
#include "operations/multirename.h"
#include "platform/posix/posixerror.h"
#include "platform/posix/renaming.h"
#include "platform/posix/trash.h"
#include "services/detail/filecommands.h"
#include "services/queuejob.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace quillorn {

namespace {

template <class... Ts> struct Overloaded : Ts... {
    using Ts::operator()...;
};

std::string quoted(const fs::path &path)
{
    return "\u2018" + path.filename().string() + "\u2019";
}

std::string itemOnlySeal(const fs::path &item, OperationControl &control)
{
    return FileOperations::seal(item, control, false, FileOperations::SealScope::itemOnly);
}

// The item's seal without its change time, which the publishing rename moved.
UndoJob::Transfer::Item sealed(const fs::path &source, const fs::path &target, OperationControl &control)
{
    try {
        return {source, target, FileOperations::seal(target, control, false), true};
    } catch (const CancellationError &) {
        throw;
    } catch (const std::exception &) {
        // A folder holding what cannot be read is still known by its own entry.
        return {source, target, itemOnlySeal(target, control), false};
    }
}

bool unchanged(const fs::path &item, const std::string &seal, bool wholeTree, OperationControl &control)
{
    if (seal.empty() || !FileOperations::exists(item))
        return false;
    try {
        return FileOperations::seal(item, control, false,
                                    wholeTree ? FileOperations::SealScope::tree
                                              : FileOperations::SealScope::itemOnly) == seal;
    } catch (const CancellationError &) {
        throw;
    } catch (const std::exception &) {
        return false;
    }
}

void requireExisting(const fs::path &item)
{
    if (!FileOperations::exists(item))
        throw CommanderError(quoted(item) + " no longer exists.");
}

void requireFree(const fs::path &place)
{
    if (FileOperations::exists(place))
        throw CommanderError("An item named " + quoted(place) + " already exists.");
    struct stat folder {};
    if (::stat(place.parent_path().c_str(), &folder) != 0 || !S_ISDIR(folder.st_mode))
        throw CommanderError("The folder " + quoted(place.parent_path()) + " that " + quoted(place) +
                             " came from no longer exists.");
}

// Each renamed item must still be as the rename left it and each old name free
// or given up by another item of the batch. The names then go back as a
// multi-rename gives them, all or none, chains and cycles in an order that
// never needs a taken name. Run again after a crash, the checks passed before
// the first rename and the run works out from the names present how far it got;
// no rename ever replaces an item, so a state it cannot place fails, never loses one.
void putNamesBack(const UndoJob::Rename &job, const NoReplaceRename &rename, OperationControl &control,
                  const std::vector<PublishIntent> *earlier)
{
    std::vector<NameChange> back;
    std::set<std::string> freed;
    for (auto name = job.names.rbegin(); name != job.names.rend(); ++name)
        if (name->before != name->after) {
            back.emplace_back(name->after, name->before);
            freed.insert(name->after);
        }
    if (!earlier)
        for (const UndoJob::Rename::Name &name : job.names) {
            if (name.before == name.after)
                continue;
            const fs::path after = job.folder / name.after, before = job.folder / name.before;
            requireExisting(after);
            if (!unchanged(after, name.seal, false, control))
                throw CommanderError(quoted(after) +
                                     " changed after it was renamed, so its name was not put back.");
            if (!freed.count(name.before) && FileOperations::exists(before) &&
                !sameItemInAnotherCase(after, before))
                throw CommanderError("An item named " + quoted(before) + " already exists.");
        }
    control.detail("Putting back " + std::to_string(back.size()) + " name(s) in " + quoted(job.folder));
    renameAll(job.folder, back, rename, control, earlier);
}

void removeMadeFolder(const fs::path &folder, bool resumed)
{
    if (resumed && !FileOperations::exists(folder))
        return;
    requireExisting(folder);
    // rmdir(2) alone decides: nothing can slip in between a look and the removal.
    if (::rmdir(folder.c_str()) == 0)
        return;
    if (errno == ENOTEMPTY || errno == EEXIST)
        throw CommanderError(quoted(folder) + " is no longer empty, so it was not removed.");
    throwPosixError(folder);
}

void restoreTrashed(const UndoJob::Trash &job, OperationControl &control, bool resumed)
{
    std::vector<const UndoJob::Trash::Item *> due;
    for (const UndoJob::Trash::Item &item : job.items) {
        if (resumed && !FileOperations::exists(item.trashed) && FileOperations::exists(item.original))
            continue;
        if (!FileOperations::exists(item.trashed))
            throw CommanderError(quoted(item.original) + " is no longer in the Trash.");
        fs::path origin;
        try {
            origin = trashedItemOrigin(item.trashed);
        } catch (const std::exception &error) {
            throw CommanderError(quoted(item.original) +
                                 " cannot be put back: " + AppDiagnostics::form(error).description + ".");
        }
        requireFree(origin);
        due.push_back(&item);
    }
    for (const UndoJob::Trash::Item *item : due) {
        control.check();
        control.detail("Putting back " + quoted(item->original));
        try {
            restoreTrashedItem(item->trashed);
        } catch (const PosixError &error) {
            if (error.code().value() == EEXIST)
                throw CommanderError("An item named " + quoted(error.path()) + " already exists.");
            throw;
        }
    }
}

} // namespace

std::vector<fs::path> itemsPutBack(const UndoJob &undo)
{
    std::vector<fs::path> items;
    if (const auto *rename = std::get_if<UndoJob::Rename>(&undo.change))
        for (const auto &name : rename->names)
            items.push_back(rename->folder / name.before);
    if (const auto *trash = std::get_if<UndoJob::Trash>(&undo.change))
        for (const auto &item : trash->items)
            items.push_back(item.original);
    if (const auto *transfer = std::get_if<UndoJob::Transfer>(&undo.change); transfer && transfer->move)
        for (const auto &item : transfer->items)
            items.push_back(item.source);
    return items;
}

UndoJob undoOfRenames(const fs::path &folder, const std::vector<std::pair<std::string, std::string>> &names,
                      OperationControl &control)
{
    UndoJob::Rename rename{folder, {}};
    for (const auto &[before, after] : names)
        rename.names.push_back({before, after, itemOnlySeal(folder / after, control)});
    return {std::move(rename)};
}

std::optional<UndoJob> JobRunner::undoOf(const Job &job, const Result &result,
                                         const std::vector<PublishIntent> &published,
                                         OperationControl &control)
{
    if (const auto *rename = std::get_if<RenameJob>(&job))
        return undoOfRenames(rename->item.parent_path(), {{rename->item.filename().native(), rename->name}},
                             control);
    if (const auto *renames = std::get_if<MultiRenameJob>(&job)) {
        std::vector<std::pair<std::string, std::string>> given;
        std::copy_if(renames->names.begin(), renames->names.end(), std::back_inserter(given),
                     [](const auto &change) { return change.first != change.second; });
        if (given.empty())
            return std::nullopt;
        return undoOfRenames(renames->folder, given, control);
    }
    if (const auto *folder = std::get_if<NewFolderJob>(&job))
        return UndoJob{UndoJob::NewFolder{folder->folder / folder->name}};
    if (std::holds_alternative<TrashJob>(job) && !result.trashed.empty())
        return UndoJob{UndoJob::Trash{result.trashed}};
    const auto *transfer = std::get_if<TransferJob>(&job);
    if (!transfer || transfer->policy == ConflictPolicy::replace || published.empty())
        return std::nullopt;
    UndoJob::Transfer undo{transfer->move, {}};
    for (const PublishIntent &intent : published) {
        // A copy was sealed whole before the rename that published it, which
        // keeps its seal; an item moved by a rename was sealed as it stood.
        if (!intent.staging.empty() && !intent.copySeal.empty())
            undo.items.push_back({intent.source, intent.target, intent.copySeal, true});
        else
            undo.items.push_back(sealed(intent.source, intent.target, control));
    }
    return UndoJob{std::move(undo)};
}

void JobRunner::undo(const UndoJob &job, OperationControl &control, const Earlier *earlier) const
{
    const bool resumed = earlier != nullptr;
    std::visit(
        Overloaded{
            [&](const UndoJob::Rename &rename) {
                std::vector<PublishIntent> intents;
                if (earlier)
                    for (const Publication &publication : earlier->published)
                        intents.push_back(publication.intent);
                putNamesBack(rename, m_operations.manager().rename, control, earlier ? &intents : nullptr);
            },
            [&](const UndoJob::NewFolder &folder) { removeMadeFolder(folder.folder, resumed); },
            [&](const UndoJob::Trash &trash) { restoreTrashed(trash, control, resumed); },
            [&](const UndoJob::Transfer &transfer) {
                const char *verb = transfer.move ? "moved" : "copied";
                const char *kept = transfer.move ? "it was not moved back" : "it was not moved to the Trash";
                std::vector<const UndoJob::Transfer::Item *> due;
                for (const UndoJob::Transfer::Item &item : transfer.items) {
                    const bool gone = !FileOperations::exists(item.target);
                    if (resumed && gone && (!transfer.move || FileOperations::exists(item.source)))
                        continue;
                    requireExisting(item.target);
                    if (!unchanged(item.target, item.seal, item.wholeTree, control))
                        throw CommanderError(quoted(item.target) + " changed after it was " + verb + ", so " +
                                             kept + ".");
                    if (transfer.move)
                        requireFree(item.source);
                    due.push_back(&item);
                }
                for (auto item = due.rbegin(); item != due.rend(); ++item) {
                    control.check();
                    if (transfer.move)
                        moveBack(**item, control);
                    else
                        m_operations.discard((*item)->target, false);
                }
            },
        },
        job.change);
}

void JobRunner::moveBack(const UndoJob::Transfer::Item &item, OperationControl &control) const
{
    control.detail("Moving " + quoted(item.target) + " back");
    try {
        renameWithoutReplacing(item.target, item.source);
        return;
    } catch (const PosixError &error) {
        if (error.code().value() == EEXIST)
            throw CommanderError("An item named " + quoted(item.source) + " already exists.");
        if (error.code().value() != EXDEV)
            throw;
    }
    // Another volume: the engine copies it back, verifies it and sends the item
    // it came from to the Trash; under the name it had there, given back after.
    const fs::path folder = item.source.parent_path();
    m_operations.transfer({item.target}, folder, true, ConflictPolicy::stop, control, false);
    const fs::path arrived = folder / item.target.filename();
    if (arrived != item.source)
        renameWithoutReplacing(arrived, item.source);
}

} // namespace quillorn
