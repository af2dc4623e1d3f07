#pragma once

#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

class QMenu;
class QWidget;

namespace quillorn {

struct Command;
class CommandTable;

// The context menu of a pane, made from the window's command table: for the
// items a command acts on, or for the folder when none is selected. Each entry
// is a command of the table with its key beside it, greyed out while it cannot
// act, checked or with a submenu where the command has one; a command the
// table lacks is left out, with its separator. The chosen command runs once
// the menu has closed and the keyboard is back where the menu came from, so a
// sheet or prompt it opens hands the keyboard back there too.
class PaneContextMenu : public QObject {
    Q_OBJECT
public:
    enum class Kind { items, folder };
    // The command ids of each menu, in order; an empty id is a separator.
    static const QStringList itemEntries;
    static const QStringList folderEntries;

    // `commands` must outlive the menu; `parent` is the window it opens over.
    PaneContextMenu(const CommandTable &commands, QWidget *parent);
    ~PaneContextMenu() override;

    // Opens the menu at a global position, without waiting for it to close.
    // `whenClosed` runs once it has closed, chosen or not, before any command.
    void popUp(Kind kind, QPoint at, std::function<void()> whenClosed);
    // The menu last opened; null before the first.
    QMenu *menu() const;

private:
    void fill(QMenu *menu, const std::vector<const Command *> &entries,
              const std::shared_ptr<const std::vector<Command>> &owner);
    void addEntry(QMenu *menu, const Command &command,
                  const std::shared_ptr<const std::vector<Command>> &owner);
    void run(const Command &command, const std::shared_ptr<const std::vector<Command>> &owner);

    const CommandTable &m_commands;
    QWidget *m_parent;
    QPointer<QMenu> m_menu;
};

} // namespace quillorn
