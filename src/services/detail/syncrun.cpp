#include "services/detail/syncrun.h"

#include "operations/appdiagnostics.h"
#include "operations/commandererror.h"
#include "operations/detail/logtext.h"
#include "operations/fileoperations.h"
#include "operations/operationcontrol.h"
#include "operations/userfacing.h"
#include "services/synctree.h"

#include <algorithm>
#include <optional>
#include <sys/stat.h>

namespace quillorn::detail {

namespace {

const std::string changedReason = "it changed after the plan was made";

std::string quoted(const std::filesystem::path &item)
{
    return "\u2018" + item.filename().string() + "\u2019";
}

bool sealMatches(const std::filesystem::path &item, const std::string &seal, OperationControl &control)
{
    struct stat info {};
    if (::lstat(item.c_str(), &info) != 0)
        return false;
    try {
        return FileOperations::seal(item, control, true,
                                    S_ISDIR(info.st_mode) ? FileOperations::SealScope::tree
                                                          : FileOperations::SealScope::itemOnly) == seal;
    } catch (const CancellationError &) {
        throw;
    } catch (const std::exception &) {
        return false;
    }
}

// Whether the target holds what the source holds, as far as a copy keeps it:
// a step a crash cut short after its publish.
bool copied(const std::filesystem::path &source, const std::filesystem::path &target)
{
    struct stat from {
    }, to{};
    if (::lstat(source.c_str(), &from) != 0 || ::lstat(target.c_str(), &to) != 0)
        return false;
    if ((from.st_mode & S_IFMT) != (to.st_mode & S_IFMT))
        return false;
    if (S_ISDIR(from.st_mode))
        return true; // a folder is published whole, by one rename
    return from.st_size == to.st_size && from.st_mtim.tv_sec == to.st_mtim.tv_sec &&
           from.st_mtim.tv_nsec == to.st_mtim.tv_nsec;
}

bool done(const SyncStep &step)
{
    if (step.kind == SyncStep::Kind::trash)
        return !FileOperations::exists(step.target);
    return copied(step.source, step.target);
}

// Why the step must not run now; empty when it may.
std::string hindrance(const SyncStep &step, OperationControl &control)
{
    if (step.kind != SyncStep::Kind::trash) {
        if (!FileOperations::exists(step.source))
            return "it is no longer there";
        if (!step.sourceSeal.empty() && !sealMatches(step.source, step.sourceSeal, control))
            return changedReason;
    }
    if (step.kind == SyncStep::Kind::copy)
        return FileOperations::exists(step.target) ? "an item with its name appeared on the other side"
                                                   : std::string();
    if (!FileOperations::exists(step.target))
        return "it is no longer there";
    return sealMatches(step.target, step.targetSeal, control) ? std::string() : changedReason;
}

void perform(const SyncStep &step, const FileOperations &operations, OperationControl &control)
{
    const std::filesystem::path folder = step.target.parent_path();
    switch (step.kind) {
    case SyncStep::Kind::copy:
        operations.transfer({step.source}, folder, false, ConflictPolicy::stop, control, true);
        break;
    case SyncStep::Kind::replace:
        // Two spellings of one name (composed and decomposed) are one item to
        // the plan: the old one leaves first, then the copy takes the name.
        if (step.source.filename() != step.target.filename()) {
            operations.discard(step.target, true);
            operations.transfer({step.source}, folder, false, ConflictPolicy::stop, control, true);
        } else {
            operations.transfer({step.source}, folder, false, ConflictPolicy::replace, control, true);
        }
        break;
    case SyncStep::Kind::trash:
        control.detail("Moving " + quoted(step.target) + " to the Trash");
        operations.discard(step.target, true);
        break;
    }
}

} // namespace

std::vector<SyncSkip> runSync(const SyncJob &job, const FileOperations &operations, OperationControl &control,
                              bool rerun, const std::filesystem::path &memoryFolder)
{
    std::int64_t total = 0;
    for (const SyncStep &step : job.steps)
        total += step.bytes;
    control.holdTotals(total, 0);
    std::vector<SyncSkip> skipped;
    std::vector<std::string> undone = job.pending;
    for (const SyncStep &step : job.steps) {
        control.check();
        if (rerun && done(step)) {
            control.add(step.bytes);
            continue;
        }
        std::string reason = hindrance(step, control);
        // The last look, right before the item leaves: the copy may have taken long.
        bool refused = false;
        const FileOperations checked = operations.checkingRemovals([&](const std::filesystem::path &item) {
            if (item.lexically_normal() == step.target.lexically_normal() &&
                !sealMatches(item, step.targetSeal, control)) {
                refused = true;
                throw CommanderError(quoted(item) + " changed after the plan was made.");
            }
        });
        if (reason.empty()) {
            const std::int64_t before = control.progress().completed;
            try {
                perform(step, checked, control);
            } catch (const CancellationError &) {
                throw;
            } catch (const std::exception &error) {
                reason = refused ? changedReason : userFacingText(error);
            }
            // The engine counts what it copied; a skipped step counts whole.
            if (!reason.empty())
                control.add(std::max<std::int64_t>(0, step.bytes - (control.progress().completed - before)));
        } else {
            control.add(step.bytes);
        }
        if (reason.empty())
            continue;
        const std::filesystem::path &item = step.kind == SyncStep::Kind::trash ? step.target : step.source;
        AppDiagnostics::shared().record("SYNC ITEM SKIPPED item=" + logPath(item) + " reason=" + reason);
        skipped.push_back({item, reason});
        undone.push_back(step.key);
    }
    if (job.remember) {
        try {
            SyncMemory now{SyncTree::of(job.left, control), SyncTree::of(job.right, control)};
            const std::optional<SyncMemory> earlier = SyncMemory::load(memoryFolder, job.left, job.right);
            now.keepEarlier(earlier ? &*earlier : nullptr, undone);
            now.save(memoryFolder, job.left, job.right);
        } catch (const CancellationError &) {
            throw;
        } catch (const std::exception &error) {
            skipped.push_back(
                {job.left, "the state of both folders could not be remembered: " + userFacingText(error)});
        }
    }
    return skipped;
}

} // namespace quillorn::detail
