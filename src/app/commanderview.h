#pragma once

#include "app/commandtable.h"
#include "app/windowcommands.h"
#include "model/commandermodel.h"
#include "model/commandertheme.h"

#include <QMainWindow>

#include <filesystem>
#include <functional>
#include <memory>

class QSplitter;
class QVBoxLayout;

namespace quillorn {

class CommanderToolBar;
class FilePane;
class FunctionKeyBar;
class KeyHandler;
class PaneContextMenu;
class Preferences;
class QueueView;
class RemovableDrives;
class StatusLine;
class ToolHost;

// The main window: the application's one CommanderModel and its two panes side
// by side, the active one outlined, in the chosen theme. It answers the panes'
// callbacks: a press activates a pane, a double click opens an entry through the
// model (a folder is entered, a file opened), dropped files go to the transfer
// sheet as a copy into that pane's folder, a right-click or the Menu key opens
// the context menu of the items or the folder.
//
// Around the panes: the tool bar above, then the queue panel, the status line
// and the function-key bar below, all in the theme. The tool sheet the model
// asks for is shown by the tool host; the keyboard is handled by a key monitor
// installed when the window is first shown (keys never go through the views).
// Coming back to the application refreshes both panes. The window's size and
// place are remembered from one run to the next, as long as the place is on a
// screen that is still there.
class CommanderView : public QMainWindow {
    Q_OBJECT
public:
    // options.panes.preferences also supplies the stored theme (nullptr: the
    // standard store); desktop services left empty are the real ones.
    explicit CommanderView(CommanderModelOptions options = {}, QWidget *parent = nullptr);
    ~CommanderView() override;

    CommanderModel &model() const { return *m_model; }
    FilePane *leftPane() const { return m_leftPane; }
    FilePane *rightPane() const { return m_rightPane; }
    CommanderToolBar *toolBar() const { return m_toolBar; }
    QueueView *queueView() const { return m_queueView; }
    StatusLine *statusLine() const { return m_statusLine; }
    FunctionKeyBar *functionKeyBar() const { return m_functionKeys; }
    ToolHost *toolHost() const { return m_toolHost; }
    // What both panes' locations menus offer of UDisks2's drives.
    RemovableDrives *removableDrives() const { return m_drives; }
    // The key-event monitor; none until the window is first shown.
    KeyHandler *keyMonitor() const { return m_monitor; }
    // Every command of the window, once.
    const CommandTable &commands() const { return m_commands; }
    // The panes' context menu, made from the commands.
    PaneContextMenu *contextMenu() const { return m_contextMenu; }
    // What the "Settings…" command opens; the application sets it.
    void setShowSettings(std::function<void()> show) { m_showSettings = std::move(show); }

    CommanderTheme theme() const { return m_theme; }
    // Recolours the window and both panes.
    void applyTheme(CommanderTheme theme);

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    FilePane *makePane(PaneModel &pane, bool left);
    void buildSurroundings(QVBoxLayout *layout, std::function<void(const std::filesystem::path &)> openFile);
    WindowHooks hooks(DesktopServices desktop);
    FilePane *activePane() const;
    void showContextMenu(bool left, QPoint at, bool onItems);
    QWidget *queueList() const;
    void refreshWhenActive(Qt::ApplicationState state);
    void showActivePane();
    void restorePlacement();
    void savePlacement();

    Preferences &m_preferences;
    std::unique_ptr<CommanderModel> m_model;
    CommanderTheme m_theme = CommanderThemeKey::defaultValue;
    QSplitter *m_splitter = nullptr;
    FilePane *m_leftPane = nullptr;
    FilePane *m_rightPane = nullptr;
    CommanderToolBar *m_toolBar = nullptr;
    QueueView *m_queueView = nullptr;
    StatusLine *m_statusLine = nullptr;
    FunctionKeyBar *m_functionKeys = nullptr;
    ToolHost *m_toolHost = nullptr;
    KeyHandler *m_monitor = nullptr;
    CommandTable m_commands;
    PaneContextMenu *m_contextMenu = nullptr;
    RemovableDrives *m_drives = nullptr;
    std::function<void()> m_showSettings;
};

} // namespace quillorn
