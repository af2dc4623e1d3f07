#include "model/commandermodel.h"

#include "platform/core/displaytext.h"
#include "platform/posix/userfolders.h"
#include "services/archivecatalog.h"

#include <QCoreApplication>
#include <QPointer>
#include <QtGlobal>
#include <algorithm>
#include <set>

namespace quillorn {

namespace {

const QString fileOperationTitle = QStringLiteral("File operation");

std::optional<std::filesystem::path> environmentPath(const char *name)
{
    if (!qEnvironmentVariableIsSet(name))
        return std::nullopt;
    // Kept as bytes: a preview folder need not be valid UTF-8.
    return std::filesystem::path(qgetenv(name).toStdString());
}

std::filesystem::path homeFolder()
{
    return std::filesystem::path(qgetenv("HOME").toStdString());
}

// The one folder a job works within, where the items it makes are the user's
// next concern: a rename's, a multi-rename's, a new folder's, that of a copy
// or move whose sources all lie in the folder they go to, and that of an undo
// whose items go back into one folder. Other transfers have none.
std::optional<std::filesystem::path> workingFolder(const Job &job)
{
    if (const auto *undo = std::get_if<UndoJob>(&job)) {
        const std::vector<std::filesystem::path> back = itemsPutBack(*undo);
        if (back.empty() || std::any_of(back.begin(), back.end(), [&](const auto &item) {
                return item.parent_path() != back.front().parent_path();
            }))
            return std::nullopt;
        return back.front().parent_path();
    }
    if (const auto *rename = std::get_if<RenameJob>(&job))
        return rename->item.parent_path();
    if (const auto *folder = std::get_if<NewFolderJob>(&job))
        return folder->folder;
    if (const auto *renames = std::get_if<MultiRenameJob>(&job))
        return renames->folder;
    if (const auto *unpack = std::get_if<ArchiveUnpackJob>(&job))
        return unpack->destination;
    if (const auto *pack = std::get_if<ArchivePackJob>(&job))
        return pack->destination;
    if (const auto *transfer = std::get_if<TransferJob>(&job)) {
        const bool within =
            !transfer->sources.empty() &&
            std::all_of(transfer->sources.begin(), transfer->sources.end(),
                        [&](const auto &source) { return source.parent_path() == transfer->destination; });
        if (within)
            return transfer->destination;
    }
    return std::nullopt;
}

// Where the cursor goes when `leaving` leaves the listing: it stays unless it
// is on one of them, else the next visible item that stays, else the nearest
// one above; none when nothing visible stays.
std::optional<std::filesystem::path> nearestRemaining(const PaneModel &pane,
                                                      const std::vector<std::filesystem::path> &leaving)
{
    const auto &cursor = pane.cursor();
    const std::set<std::filesystem::path> gone(leaving.begin(), leaving.end());
    const auto leaves = [&](const std::filesystem::path &url) { return gone.count(url) > 0; };
    if (!cursor || !leaves(*cursor))
        return cursor;
    const std::optional<int> at = pane.visibleIndexOf(*cursor);
    if (!at)
        return cursor;
    for (int row = *at + 1; row < pane.visibleCount(); ++row)
        if (!leaves(pane.visibleAt(row).url()))
            return pane.visibleAt(row).url();
    for (int row = *at - 1; row >= 0; --row)
        if (!leaves(pane.visibleAt(row).url()))
            return pane.visibleAt(row).url();
    return std::nullopt;
}

QString quoted(const std::filesystem::path &path)
{
    return QStringLiteral("\u2018") + displayName(path) + QStringLiteral("\u2019");
}

// "‘a.txt’" for one item, "3 items" for more.
QString itemsText(const std::vector<std::filesystem::path> &items)
{
    return items.size() == 1 ? quoted(items.front()) : QStringLiteral("%1 items").arg(items.size());
}

// What an undo puts back, named after the job it undoes.
QString undoDescription(const UndoJob &undo)
{
    using Path = std::filesystem::path;
    if (const auto *rename = std::get_if<UndoJob::Rename>(&undo.change)) {
        if (rename->names.size() != 1)
            return QStringLiteral("rename of %1 items").arg(rename->names.size());
        return "rename " + quoted(Path(rename->names.front().before)) + " \u2192 " +
               quoted(Path(rename->names.front().after));
    }
    if (const auto *folder = std::get_if<UndoJob::NewFolder>(&undo.change))
        return "new folder " + quoted(folder->folder);
    std::vector<Path> items;
    if (const auto *trash = std::get_if<UndoJob::Trash>(&undo.change)) {
        for (const auto &item : trash->items)
            items.push_back(item.original);
        return "trash of " + itemsText(items);
    }
    const auto &transfer = std::get<UndoJob::Transfer>(undo.change);
    for (const auto &item : transfer.items)
        items.push_back(item.target);
    return (transfer.move ? "move of " : "copy of ") + itemsText(items) + " to " +
           quoted(items.front().parent_path());
}

} // namespace

CommanderModel::CommanderModel(CommanderModelOptions options, QObject *parent)
    : QObject(parent), m_desktop(std::move(options.desktop)),
      m_operations(options.fileOperations ? options.fileOperations() : FileOperations()),
      m_queue(new TransferQueue(this, options.queuePollIntervalMs))
{
    createPanes(options.panes);
    m_queue->setRunner(JobRunner(m_operations));

    // Every finished job may have touched either folder, so both panes re-list,
    // with their cursors already where the listing is to keep them.
    QPointer<CommanderModel> self(this);
    m_queue->setCompleted([self](const QueueItem &finished) {
        if (!self)
            return;
        self->placeCursorsOnMadeItems(finished);
        self->recordFinished(finished);
        self->m_left->refresh();
        self->m_right->refresh();
    });
}

CommanderModel::~CommanderModel() = default;

void CommanderModel::createPanes(const PaneModelOptions &options)
{
    // Both preview folders, or neither: then the panes persist nothing at all.
    if (const auto leftFolder = environmentPath("QUILLORN_RELEASE_PREVIEW_LEFT")) {
        if (const auto rightFolder = environmentPath("QUILLORN_RELEASE_PREVIEW_RIGHT")) {
            m_left = std::make_unique<PaneModel>(std::filesystem::absolute(*leftFolder), QString(), options);
            m_right =
                std::make_unique<PaneModel>(std::filesystem::absolute(*rightFolder), QString(), options);
            return;
        }
    }
    const std::filesystem::path home = homeFolder();
    m_left = std::make_unique<PaneModel>(home, QStringLiteral("left"), options);
    m_right = std::make_unique<PaneModel>(downloadsFolder(home), QStringLiteral("right"), options);
}

void CommanderModel::setTool(std::optional<ToolSheet> tool)
{
    if (m_tool == tool)
        return;
    m_tool = std::move(tool);
    Q_EMIT toolChanged();
}

void CommanderModel::setActiveLeft(bool activeLeft)
{
    if (m_activeLeft == activeLeft)
        return;
    m_activeLeft = activeLeft;
    Q_EMIT activeLeftChanged();
}

void CommanderModel::setStatus(const QString &status)
{
    if (m_status == status)
        return;
    m_status = status;
    Q_EMIT statusChanged();
}

QString CommanderModel::helpText()
{
    return QStringLiteral("Tab: switch pane • ↑/↓: navigate • Return: open • Space: tag and advance • "
                          "Backspace: parent folder\n"
                          "Ctrl+A: select all • Ctrl+R: refresh • Ctrl+Shift+.: hidden files\n"
                          "F2 Rename • F3 View • F4 Edit • F5 Copy • F6 Move • F7 New folder • F8 Trash\n"
                          "Use Fn with function keys if the keyboard assigns them to system controls.");
}

void CommanderModel::perform(int number)
{
    const std::vector<Path> items = active().selected();
    switch (number) {
    case 1:
        showHelp();
        break;
    case 2:
        rename(items);
        break;
    case 3:
        preview();
        break;
    case 4:
        if (!items.empty())
            setTool(ToolSheet::Editor{items.front()});
        break;
    case 5:
        transfer(items, other().directory(), false);
        break;
    case 6:
        transfer(items, other().directory(), true);
        break;
    case 7:
        newFolder();
        break;
    case 8:
        trash(items);
        break;
    case 9:
        m_left->reload();
        m_right->reload();
        break;
    case 10:
        quit();
        break;
    default:
        break;
    }
}

void CommanderModel::showHelp()
{
    if (m_desktop.alert)
        m_desktop.alert(
            {QStringLiteral("Keyboard help"), helpText(), {}, m_helpDetails ? m_helpDetails() : QString()});
}

void CommanderModel::rename(const std::vector<Path> &items)
{
    if (items.size() != 1)
        return;
    const Path item = items.front();
    // Edited as text that maps back to the name's bytes, so that bytes outside
    // UTF-8 survive everything the user leaves untouched.
    const std::optional<QString> answer = prompt(QStringLiteral("Rename"), editableText(item.filename()));
    if (!answer)
        return;
    const std::string name = pathFromEditableText(*answer).string();
    m_queue->enqueue(fileOperationTitle, RenameJob{item, name});
}

void CommanderModel::newFolder()
{
    const std::optional<QString> answer = prompt(QStringLiteral("New folder"), QStringLiteral("New Folder"));
    if (!answer)
        return;
    const std::string name = pathFromText(*answer).string();
    const Path folder = active().directory();
    m_queue->enqueue(fileOperationTitle, NewFolderJob{folder, name});
}

void CommanderModel::trash(const std::vector<Path> &items)
{
    if (items.empty())
        return;
    const QString question = QStringLiteral("Move %1 selected item(s) to the Trash? If Trash is unavailable "
                                            "on a network share, those items will be permanently deleted.")
                                 .arg(items.size());
    const int choice = alert(QStringLiteral("Delete selected items?"), question,
                             {QStringLiteral("Continue"), QStringLiteral("Cancel")});
    if (choice != 0)
        return;
    // Moved now, to an item that stays: whichever listing first misses the
    // trashed items then keeps it.
    active().setCursor(nearestRemaining(active(), items));
    m_queue->enqueue(fileOperationTitle, TrashJob{items});
}

void CommanderModel::placeCursorsOnMadeItems(const QueueItem &finished)
{
    if (finished.state != JobState::complete)
        return;
    const std::optional<Path> folder = workingFolder(finished.job);
    if (!folder)
        return;
    const auto made = std::find_if(finished.made.begin(), finished.made.end(),
                                   [&](const Path &item) { return item.parent_path() == *folder; });
    if (made == finished.made.end())
        return;
    for (PaneModel *pane : {m_left.get(), m_right.get()})
        if (pane->directory() == *folder)
            pane->setCursor(*made);
}

QString CommanderModel::nextUndo() const
{
    return m_history.empty() ? QString() : m_history.back().what;
}

void CommanderModel::undo()
{
    if (m_history.empty())
        return;
    Undoable latest = std::move(m_history.back());
    m_history.pop_back();
    const QUuid id = m_queue->enqueue(QStringLiteral("Undo"), std::move(latest.job));
    m_undoing[id] = latest.what;
}

void CommanderModel::extractArchives(const std::vector<Path> &archives)
{
    const Path destination = other().directory();
    for (const Path &archive : archives) {
        if (ArchiveCatalog::kind(archive) == ArchiveCatalog::Kind::none) {
            setStatus("\u2018" + displayName(archive) + "\u2019 is not an archive Quillorn can read.");
            continue;
        }
        const ArchiveUnpackJob job{archive, destination};
        m_queue->enqueue(job.title(), job);
    }
}

void CommanderModel::createArchive(const std::vector<Path> &items)
{
    if (items.empty())
        return;
    const std::optional<QString> name =
        prompt(QStringLiteral("Create archive (.zip, .tar.gz, .tar.xz, .tar.zst or .7z)"),
               QString::fromStdString(ArchivePackJob::suggestedName(items, ".tar.gz")));
    if (!name || name->trimmed().isEmpty())
        return;
    const ArchivePackJob job{items, other().directory(), name->toStdString()};
    if (!ArchivePackJob::formatOf(job.name)) {
        setStatus("\u2018" + *name + "\u2019 does not end in .zip, .tar.gz, .tar.xz, .tar.zst or .7z.");
        return;
    }
    m_queue->enqueue(job.title(), job);
}

void CommanderModel::askToUnpackLarge(const QueueItem &finished)
{
    const auto *unpack = std::get_if<ArchiveUnpackJob>(&finished.job);
    if (!unpack || finished.state != JobState::failed || unpack->allowLarge ||
        !finished.failure.startsWith(QString::fromStdString(ArchiveUnpackJob::tooLargePrefix)))
        return;
    const QString message =
        finished.failure.mid(QString::fromStdString(ArchiveUnpackJob::tooLargePrefix).size());
    if (alert(message, QStringLiteral("Extract it all the same?"),
              {QStringLiteral("Extract"), QStringLiteral("Cancel")}) != 0)
        return;
    ArchiveUnpackJob again = *unpack;
    again.allowLarge = true;
    m_queue->enqueue(again.title(), again);
}

void CommanderModel::recordFinished(const QueueItem &finished)
{
    askToUnpackLarge(finished);
    QString status;
    if (const auto undone = m_undoing.find(finished.id); undone != m_undoing.end()) {
        if (finished.state == JobState::complete)
            status = "Undone: " + undone->second;
        else if (finished.state == JobState::failed)
            status = "Not undone: " + finished.failure;
        else
            status = "Not undone: the undo of " + undone->second + " was cancelled.";
        m_undoing.erase(undone);
    } else if (finished.state == JobState::complete && finished.undo) {
        m_history.push_back({*finished.undo, undoDescription(*finished.undo)});
    } else {
        return;
    }
    if (canUndo())
        status += (status.isEmpty() ? "" : " \u2022 ") + QStringLiteral("Ctrl+Z: undo ") + nextUndo();
    setStatus(status);
}

void CommanderModel::quit()
{
    if (!m_queue->hasWork()) {
        if (m_desktop.requestQuit)
            m_desktop.requestQuit();
        else
            QCoreApplication::quit();
        return;
    }
    alert(QStringLiteral("Operations in progress"),
          QStringLiteral("Cancel or finish queued operations before quitting."));
}

void CommanderModel::open(const FileEntry &entry)
{
    const std::filesystem::path url = entry.url();
    if (entry.directory) {
        active().navigate(url);
    } else if (ArchiveCatalog::kind(url) != ArchiveCatalog::Kind::none) {
        setTool(ToolSheet::Archive{url});
    } else if (m_desktop.openFile) {
        m_desktop.openFile(url);
    }
}

void CommanderModel::preview()
{
    const std::vector<Path> items = active().selected();
    if (items.empty() || !m_desktop.preview)
        return;
    QPointer<CommanderModel> self(this);
    m_desktop.preview(items.front(), [self](const QString &reason) {
        if (self)
            self->alert(QStringLiteral("Cannot preview"), reason);
    });
}

void CommanderModel::transfer(const std::vector<Path> &sources, const Path &destination, bool move)
{
    if (sources.empty())
        return;
    setTool(ToolSheet::Transfer{sources, destination, move});
}

void CommanderModel::clipboardCopy()
{
    const std::vector<Path> items = active().selected();
    if (items.empty())
        return;
    if (m_desktop.writeClipboard)
        m_desktop.writeClipboard(items);
    setStatus(QStringLiteral("Copied %1 file reference(s)").arg(items.size()));
}

void CommanderModel::clipboardCut()
{
    const std::vector<Path> items = active().selected();
    if (items.empty())
        return;
    if (m_desktop.cutToClipboard)
        m_desktop.cutToClipboard(items);
    (m_activeLeft ? *m_right : *m_left).setCut({});
    active().setCut({items.begin(), items.end()});
    setStatus(QStringLiteral("Cut %1 file reference(s)").arg(items.size()));
}

void CommanderModel::clipboardPaste()
{
    const std::vector<Path> items = m_desktop.readClipboard ? m_desktop.readClipboard() : std::vector<Path>{};
    const bool cut = !items.empty() && m_desktop.clipboardIsCut && m_desktop.clipboardIsCut();
    transfer(items, active().directory(), cut);
}

void CommanderModel::forgetCut()
{
    m_left->setCut({});
    m_right->setCut({});
}

void CommanderModel::openSearch()
{
    setTool(ToolSheet::Search{active().directory()});
}

void CommanderModel::openCompare()
{
    setTool(ToolSheet::Compare{m_left->directory(), m_right->directory()});
}

void CommanderModel::openInfo()
{
    const std::vector<Path> items = active().selected();
    if (!items.empty())
        setTool(ToolSheet::Info{items.front()});
}

void CommanderModel::openMultiRename()
{
    std::vector<Path> items = active().selected();
    if (!items.empty())
        setTool(ToolSheet::MultiRename{active().directory(), std::move(items)});
}

void CommanderModel::connect()
{
    setTool(ToolSheet::Connect{});
}

void CommanderModel::openTrash(std::vector<Path> volumes)
{
    setTool(ToolSheet::Trash{std::move(volumes)});
}

bool CommanderModel::restoreFromTrash(const std::vector<Path> &items, const std::vector<Path> &takenOrigins)
{
    if (items.empty())
        return false;
    const bool keepBoth = !takenOrigins.empty();
    if (keepBoth) {
        const QString message =
            takenOrigins.size() == 1
                ? "An item named " + quoted(takenOrigins.front()) + " already exists."
                : QStringLiteral("%1 items have names that are taken where they came from.")
                      .arg(takenOrigins.size());
        const int choice =
            alert(message,
                  QStringLiteral("Nothing is replaced. Keep both puts each such item back under "
                                 "a free name beside the one taken, such as \u2018name (2)\u2019."),
                  {QStringLiteral("Keep both"), QStringLiteral("Cancel")});
        if (choice != 0)
            return false;
    }
    m_queue->enqueue(QStringLiteral("Restore from Trash"), RestoreFromTrashJob{items, keepBoth});
    return true;
}

bool CommanderModel::deleteFromTrash(const std::vector<Path> &items)
{
    if (items.empty())
        return false;
    const int choice =
        alert("Delete " + itemsText(items) + " for good?",
              QStringLiteral("Deleted items do not go back to the Trash; this cannot be undone."),
              {QStringLiteral("Delete"), QStringLiteral("Cancel")});
    if (choice != 0)
        return false;
    m_queue->enqueue(QStringLiteral("Delete from Trash"), EraseFromTrashJob{items});
    return true;
}

bool CommanderModel::emptyTrash(const std::vector<Path> &items)
{
    if (items.empty())
        return false;
    const int choice =
        alert(QStringLiteral("Empty the Trash?"),
              QStringLiteral("All %1 items in the Trash will be deleted for good; this cannot be undone.")
                  .arg(items.size()),
              {QStringLiteral("Empty Trash"), QStringLiteral("Cancel")});
    if (choice != 0)
        return false;
    m_queue->enqueue(QStringLiteral("Empty Trash"), EraseFromTrashJob{items});
    return true;
}

std::optional<QString> CommanderModel::prompt(const QString &title, const QString &value)
{
    return m_desktop.prompt ? m_desktop.prompt(title, value) : std::nullopt;
}

int CommanderModel::alert(const QString &message, const QString &informativeText, const QStringList &buttons)
{
    return m_desktop.alert ? m_desktop.alert({message, informativeText, buttons}) : -1;
}

} // namespace quillorn
