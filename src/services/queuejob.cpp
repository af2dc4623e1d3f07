#include "services/queuejob.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/detail/logtext.h"
#include "operations/multirename.h"
#include "operations/operationcontrol.h"
#include "services/detail/filecommands.h"
#include "services/detail/syncrun.h"
#include "services/detail/trashcommands.h"
#include "services/synctree.h"

#include <algorithm>
#include <sys/stat.h>

namespace quillorn {

namespace {

template <class... Ts> struct Overloaded : Ts... {
    using Ts::operator()...;
};

bool isFolder(const std::filesystem::path &path)
{
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Whether the item is there and still has the seal recorded for it; an empty
// seal (an older record, or one that could not be taken) never matches.
bool sealMatches(const std::filesystem::path &item, const std::string &seal, bool changeTimes,
                 FileOperations::SealScope scope, OperationControl &control)
{
    if (seal.empty() || !FileOperations::exists(item))
        return false;
    try {
        return FileOperations::seal(item, control, changeTimes, scope) == seal;
    } catch (const CancellationError &) {
        throw;
    } catch (const std::exception &) {
        return false;
    }
}

} // namespace

MultiRenameJob MultiRenameJob::reversed() const
{
    MultiRenameJob back{folder, {}};
    back.names.reserve(names.size());
    for (const auto &[from, to] : names)
        back.names.emplace_back(to, from);
    return back;
}

JobRunner::Result JobRunner::run(const Job &job, OperationControl &control, const Earlier *earlier) const
{
    control.check();
    Result result;
    std::visit(Overloaded{
                   [&](const TransferJob &transfer) { result = this->transfer(transfer, control, earlier); },
                   [&](const RenameJob &rename) {
                       // Already done when the crash came after the rename itself.
                       if (earlier && !FileOperations::exists(rename.item) &&
                           FileOperations::exists(rename.item.parent_path() / rename.name))
                           return;
                       detail::renameItem(rename.item, rename.name);
                   },
                   [&](const NewFolderJob &folder) {
                       if (earlier && isFolder(folder.folder / folder.name))
                           return;
                       detail::createFolder(folder.name, folder.folder);
                   },
                   [&](const TrashJob &trash) { result.trashed = this->trash(trash, control, earlier); },
                   [&](const ArchiveExtraction &extraction) { extraction(control); },
                   [&](const OpaqueJob &opaque) { opaque.work(control); },
                   [&](const MultiRenameJob &rename) {
                       std::vector<PublishIntent> intents;
                       if (earlier)
                           for (const Publication &publication : earlier->published)
                               intents.push_back(publication.intent);
                       renameAll(rename.folder, rename.names, m_operations.manager().rename, control,
                                 earlier ? &intents : nullptr);
                   },
                   [&](const UndoJob &undo) { this->undo(undo, control, earlier); },
                   [&](const RestoreFromTrashJob &restore) {
                       result.restored = detail::restoreFromTrash(restore, control, earlier != nullptr);
                   },
                   [&](const EraseFromTrashJob &erase) { detail::eraseFromTrash(erase, control); },
                   [&](const SyncJob &sync) {
                       for (detail::SyncSkip &skip : detail::runSync(
                                sync, m_operations, control, earlier != nullptr, SyncMemory::defaultFolder()))
                           result.syncSkipped.emplace_back(std::move(skip.item), std::move(skip.reason));
                   },
                   // Run again after a crash, both start afresh: the staging item
                   // the first run left is removed by the staging journal.
                   [&](const ArchiveUnpackJob &unpack) { result.made = unpack(control); },
                   [&](const ArchivePackJob &pack) { result.made = pack(control); },
               },
               job);
    return result;
}

JobRunner::Result JobRunner::transfer(const TransferJob &job, OperationControl &control,
                                      const Earlier *earlier) const
{
    std::vector<Path> sources = job.sources;
    Result result{{}, {}, job.move, job.destination, {}, {}, {}, {}};
    std::vector<KeptSource> &kept = result.kept;
    if (earlier && !earlier->published.empty()) {
        std::vector<Path> done;
        for (const Path &source : sources) {
            const Publication *last = nullptr;
            for (const Publication &publication : earlier->published)
                if (publication.intent.source.lexically_normal() == source.lexically_normal())
                    last = &publication;
            if (!last)
                continue;
            const PublishIntent &intent = last->intent;
            const bool copyIntact = sealMatches(intent.target, intent.copySeal, false,
                                                intent.staging.empty() ? FileOperations::SealScope::itemOnly
                                                                       : FileOperations::SealScope::tree,
                                                control);
            // Never confirmed and not found under its final name: the rename did
            // not happen, and the item is transferred again.
            if (!last->confirmed && !copyIntact)
                continue;
            done.push_back(source);
            if (!job.move || !FileOperations::exists(source))
                continue;
            // The crash came before the moved source left: it leaves now, but only
            // as it was verified and only while its copy is still there.
            std::string reason;
            if (!copyIntact)
                reason = "its copy is missing or changed at the destination";
            else if (!sealMatches(source, intent.sourceSeal, true, FileOperations::SealScope::tree, control))
                reason = "it changed after it was copied";
            if (reason.empty()) {
                control.check();
                m_operations.discard(source, true);
                continue;
            }
            AppDiagnostics::shared().record("TRANSFER SOURCE KEPT source=" + detail::logPath(source) +
                                            " target=" + detail::logPath(intent.target) +
                                            " reason=" + reason);
            kept.push_back({source, intent.target, reason});
        }
        std::erase_if(sources, [&](const Path &source) {
            return std::find(done.begin(), done.end(), source) != done.end();
        });
        if (sources.empty())
            return result;
    }
    const std::size_t before = sources.size();
    // Only the skip policy passes over an item without an error.
    if (m_operations.transfer(sources, job.destination, job.move, job.policy, control, true).empty() &&
        before == job.sources.size())
        result.skipped = std::move(sources);
    return result;
}

std::vector<UndoJob::Trash::Item> JobRunner::trash(const TrashJob &job, OperationControl &control,
                                                   const Earlier *earlier) const
{
    std::vector<UndoJob::Trash::Item> trashed;
    for (const Path &item : job.items) {
        // An item that is gone was trashed by the run a crash cut short.
        if (earlier && !FileOperations::exists(item))
            continue;
        control.check();
        if (const std::optional<Path> there = m_operations.discard(item, true))
            trashed.push_back({item, *there});
    }
    return trashed;
}

std::optional<std::int64_t> JobRunner::measure(const Job &job, OperationControl &control)
{
    if (std::holds_alternative<OpaqueJob>(job))
        return std::nullopt;
    if (const auto *sync = std::get_if<SyncJob>(&job)) {
        std::int64_t total = 0;
        for (const SyncStep &step : sync->steps)
            total += step.bytes;
        return total;
    }
    if (const auto *pack = std::get_if<ArchivePackJob>(&job)) {
        std::int64_t total = 0;
        for (const Path &item : pack->items)
            total += FileOperations::byteCount(item, control);
        return total;
    }
    if (const auto *unpack = std::get_if<ArchiveUnpackJob>(&job)) {
        // Progress is the archive read so far.
        struct stat info {};
        return ::stat(unpack->archive.c_str(), &info) == 0 ? std::int64_t(info.st_size) : 0;
    }
    const auto *transfer = std::get_if<TransferJob>(&job);
    if (!transfer)
        return 0; // renames, new folders, trash and extractions count no bytes
    std::int64_t total = 0;
    for (const Path &source : transfer->sources)
        total += FileOperations::transferByteCount(source, transfer->destination, transfer->move,
                                                   transfer->policy, control);
    return total;
}

} // namespace quillorn
