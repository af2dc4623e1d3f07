#include "services/queuejob.h"

#include "operations/operationcontrol.h"
#include "services/detail/filecommands.h"

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

} // namespace

void JobRunner::run(const Job &job, OperationControl &control, const Earlier *earlier) const
{
    control.check();
    std::visit(Overloaded{
                   [&](const TransferJob &transfer) { this->transfer(transfer, control, earlier); },
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
                   [&](const TrashJob &trash) { this->trash(trash, control, earlier); },
                   [&](const ArchiveExtraction &extraction) { extraction(control); },
                   [&](const OpaqueJob &opaque) { opaque.work(control); },
               },
               job);
}

void JobRunner::transfer(const TransferJob &job, OperationControl &control, const Earlier *earlier) const
{
    std::vector<Path> sources = job.sources;
    if (earlier && !earlier->published.empty()) {
        const auto published = [&](const Path &source) {
            const Path normal = source.lexically_normal();
            return std::any_of(earlier->published.begin(), earlier->published.end(),
                               [&](const Path &done) { return done.lexically_normal() == normal; });
        };
        // The copy of a moved source is in place: the crash came before the
        // source left, so it leaves now. Never one whose copy was not published.
        for (const Path &source : sources)
            if (published(source) && job.move && FileOperations::exists(source)) {
                control.check();
                m_operations.discard(source, true);
            }
        std::erase_if(sources, published);
        if (sources.empty())
            return;
    }
    m_operations.transfer(sources, job.destination, job.move, job.policy, control, true);
}

void JobRunner::trash(const TrashJob &job, OperationControl &control, const Earlier *earlier) const
{
    for (const Path &item : job.items) {
        // An item that is gone was trashed by the run a crash cut short.
        if (earlier && !FileOperations::exists(item))
            continue;
        control.check();
        m_operations.discard(item, true);
    }
}

std::optional<std::int64_t> JobRunner::measure(const Job &job, OperationControl &control)
{
    if (std::holds_alternative<OpaqueJob>(job))
        return std::nullopt;
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
