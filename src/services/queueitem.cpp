#include "services/queueitem.h"

#include "platform/core/displaytext.h"

#include <variant>

namespace quillorn {

namespace {

template <class... Ts> struct Overloaded : Ts... {
    using Ts::operator()...;
};

QString quotedName(const std::filesystem::path &path)
{
    // "Photos/" names Photos, not the empty name after its slash.
    const std::filesystem::path name = path.has_filename() ? path.filename() : path.parent_path().filename();
    return QStringLiteral("\u2018") + displayText(name) + QStringLiteral("\u2019");
}

QString firstAndMore(const std::vector<std::filesystem::path> &items)
{
    if (items.empty())
        return {};
    if (items.size() == 1)
        return quotedName(items.front());
    return quotedName(items.front()) + QStringLiteral(" and %1 more").arg(items.size() - 1);
}

// The items an undo puts back, by the names they have now.
QString undoCarries(const UndoJob &undo)
{
    std::vector<std::filesystem::path> items;
    std::visit(Overloaded{
                   [&](const UndoJob::Rename &rename) {
                       for (const auto &name : rename.names)
                           items.push_back(rename.folder / name.after);
                   },
                   [&](const UndoJob::NewFolder &folder) { items.push_back(folder.folder); },
                   [&](const UndoJob::Trash &trash) {
                       for (const auto &item : trash.items)
                           items.push_back(item.original);
                   },
                   [&](const UndoJob::Transfer &transfer) {
                       for (const auto &item : transfer.items)
                           items.push_back(item.target);
                   },
               },
               undo.change);
    return firstAndMore(items);
}

} // namespace

QString QueueItem::carries() const
{
    return std::visit(
        Overloaded{
            [](const TransferJob &transfer) { return firstAndMore(transfer.sources); },
            [](const TrashJob &trash) { return firstAndMore(trash.items); },
            [](const RenameJob &rename) { return quotedName(rename.item); },
            [](const NewFolderJob &folder) { return quotedName(std::filesystem::path(folder.name)); },
            [](const ArchiveExtraction &extraction) {
                return QStringLiteral("\u2018") + extraction.fileName() + QStringLiteral("\u2019");
            },
            [](const OpaqueJob &) { return QString(); },
            [](const MultiRenameJob &rename) {
                if (rename.names.empty())
                    return QString();
                const QString first = quotedName(std::filesystem::path(rename.names.front().first));
                const std::size_t others = rename.names.size() - 1;
                return others == 0 ? first : first + QStringLiteral(" and %1 more").arg(others);
            },
            [](const UndoJob &undo) { return undoCarries(undo); },
            [](const RestoreFromTrashJob &restore) { return firstAndMore(restore.items); },
            [](const EraseFromTrashJob &erase) { return firstAndMore(erase.items); },
            [](const SyncJob &sync) {
                return quotedName(sync.left) + QStringLiteral(" and ") + quotedName(sync.right);
            },
            [](const ArchiveUnpackJob &unpack) { return quotedName(unpack.archive); },
            [](const ArchivePackJob &pack) { return firstAndMore(pack.items); },
        },
        job);
}

QString QueueItem::text(JobState state, const QString &failure)
{
    switch (state) {
    case JobState::waiting:
        return QStringLiteral("Waiting");
    case JobState::running:
        return QStringLiteral("Running");
    case JobState::paused:
        return QStringLiteral("Paused");
    case JobState::interrupted:
        return QStringLiteral("Interrupted");
    case JobState::complete:
        return QStringLiteral("Complete");
    case JobState::cancelled:
        return QStringLiteral("Cancelled");
    case JobState::cancelledWhileRunning:
        return QStringLiteral("Cancelled \u2014 previously completed items remain");
    case JobState::failed:
        return QStringLiteral("Failed: ") + failure;
    }
    return {};
}

} // namespace quillorn
