#pragma once

#include "model/fileentry.h"
#include "model/panemodel.h"
#include "model/toolsheet.h"
#include "operations/fileoperations.h"
#include "platform/core/desktopservices.h"
#include "services/transferqueue.h"

#include <QObject>
#include <QString>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace quillorn {

struct CommanderModelOptions {
    // Dialogs, clipboard, quick look and default applications; the window passes
    // the real ones (standardDesktopServices), tests their stand-ins.
    DesktopServices desktop;
    // Handed to both panes (preferences store, timer interval).
    PaneModelOptions panes;
    int queuePollIntervalMs = TransferQueue::defaultPollIntervalMs;
    // The engine the trash command uses; empty: FileOperations with its default services.
    std::function<FileOperations()> fileOperations;
};

// The application model behind the main window: the two panes, the one
// transfer queue, which pane is active, the tool sheet asked for and the status
// line. It carries out the function-key commands and the window's few other
// commands. It never touches the file system on the interface thread: rename,
// new folder and trash become "File operation" jobs of the queue (so a bad
// name shows in the queue, not as an alert), copy and move go through the
// transfer sheet. Lives on the interface thread for the life of the window.
class CommanderModel : public QObject {
    Q_OBJECT
public:
    using Path = std::filesystem::path;

    explicit CommanderModel(CommanderModelOptions options = {}, QObject *parent = nullptr);
    ~CommanderModel() override;

    PaneModel &left() { return *m_left; }
    PaneModel &right() { return *m_right; }
    TransferQueue &queue() { return *m_queue; }
    // The left pane while activeLeft, else the right one; `other` is the opposite.
    PaneModel &active() { return m_activeLeft ? *m_left : *m_right; }
    PaneModel &other() { return m_activeLeft ? *m_right : *m_left; }

    const std::optional<ToolSheet> &tool() const { return m_tool; }
    void setTool(std::optional<ToolSheet> tool);
    bool activeLeft() const { return m_activeLeft; }
    void setActiveLeft(bool activeLeft);
    const QString &status() const { return m_status; }
    // What the window's own commands report, such as an application that would not start.
    void setStatus(const QString &status);

    // The command of function key F<number>; other numbers do nothing.
    void perform(int number);
    // Return or double click on an item of the active pane.
    void open(const FileEntry &entry);
    // Quick look at the first item to act on.
    void preview();
    // Opens the transfer sheet for the sources; nothing when there are none.
    void transfer(const std::vector<Path> &sources, const Path &destination, bool move);
    void clipboardCopy();
    // Puts the items on the clipboard marked as cut; they are drawn dimmed.
    void clipboardCut();
    // Offers to copy the clipboard's files into the active pane's folder, or to
    // move them when they were cut (here or in another file manager).
    void clipboardPaste();
    // The clipboard no longer holds the items cut here: nothing is dimmed.
    void forgetCut();
    // The sheets the window's keys and tool bar ask for: the name search below
    // the active pane's folder, the comparison of the two panes' folders, and
    // the information sheet of the first item to act on (nothing without one).
    void openSearch();
    void openCompare();
    void openInfo();
    // The multi-rename sheet for the items to act on; nothing without any.
    void openMultiRename();
    // Opens the connect-to-server sheet.
    void connect();
    // Queues the unpacking of each archive into a folder of its own in the
    // other pane; an item that is no archive is named in the status line.
    void extractArchives(const std::vector<Path> &archives);
    // Asks for the new archive's name (its extension picks the format) and
    // queues the packing of the items into it, in the other pane.
    void createArchive(const std::vector<Path> &items);
    // Opens the Trash sheet on the home trash and those on the volumes.
    void openTrash(std::vector<Path> volumes);
    // The Trash sheet's commands on items of the trash folders' files/, each
    // queued as one job once the user agrees. Restoring asks only when names
    // are taken where items came from (the sheet looked just before): "Keep
    // both" gives those items free names beside them, nothing is ever
    // replaced. Deleting and emptying always ask, as nothing brings the items
    // back. False when the user declined and nothing was queued.
    bool restoreFromTrash(const std::vector<Path> &items, const std::vector<Path> &takenOrigins);
    bool deleteFromTrash(const std::vector<Path> &items);
    bool emptyTrash(const std::vector<Path> &items);
    using QObject::connect;

    // The undo history of this session, last first: every rename, new folder,
    // trash, copy and move that completed (an undo itself is not one of them).
    bool canUndo() const { return !m_history.empty(); }
    // What the next undo puts back, as the help and the status line name it:
    // "rename ‘a.txt’ → ‘b.txt’"; empty when there is nothing to undo.
    QString nextUndo() const;
    // Queues the undo of the latest recorded job and forgets it, whatever the
    // undo's outcome: an undo that refused (what it would put back changed
    // since) says why in its queue row and the status line, and the next one
    // goes on to the job before.
    void undo();

    // The informative text of F1's alert.
    static QString helpText();
    // What F1's alert shows on request below it: the window's other keys, as
    // they are named when it opens.
    void setHelpDetails(std::function<QString()> details) { m_helpDetails = std::move(details); }

Q_SIGNALS:
    void toolChanged();
    void activeLeftChanged();
    void statusChanged();

private:
    void createPanes(const PaneModelOptions &options);
    void showHelp();
    void rename(const std::vector<Path> &items);
    void newFolder();
    void trash(const std::vector<Path> &items);
    void quit();
    // Before the refresh after a job: a pane showing the folder the job worked
    // within puts its cursor on the item the job made there.
    void placeCursorsOnMadeItems(const QueueItem &finished);
    // Keeps a completed job's undo, or tells how an undo ended, in the status line.
    void recordFinished(const QueueItem &finished);
    std::optional<QString> prompt(const QString &title, const QString &value);
    // An unpacking that stopped at its size limit is offered again, past it.
    void askToUnpackLarge(const QueueItem &finished);
    int alert(const QString &message, const QString &informativeText, const QStringList &buttons = {});

    DesktopServices m_desktop;
    FileOperations m_operations;
    TransferQueue *m_queue = nullptr;
    std::unique_ptr<PaneModel> m_left;
    std::unique_ptr<PaneModel> m_right;
    std::optional<ToolSheet> m_tool;
    bool m_activeLeft = true;
    QString m_status = QStringLiteral("Ready");
    std::function<QString()> m_helpDetails;
    struct Undoable {
        UndoJob job;
        QString what; // as nextUndo() names it
    };
    std::vector<Undoable> m_history;    // the latest last
    std::map<QUuid, QString> m_undoing; // queued undos, by what they put back
};

} // namespace quillorn
