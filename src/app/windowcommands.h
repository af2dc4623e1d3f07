#pragma once

#include "app/commandtable.h"
#include "platform/desktop/mimeapplications.h"

#include <filesystem>
#include <functional>
#include <optional>

namespace quillorn {

class CommanderModel;
class PaneModel;

// What the commands need of the window beyond the application model.
struct WindowHooks {
    std::function<void(const std::filesystem::path &)> openFile;
    std::function<int()> rowsPerPage; // rows of the active pane's list on screen
    std::function<void()> focusFilter;
    std::function<void()> focusPath;
    std::function<void()> focusQueue;
    std::function<bool()> queueShown;
    std::function<void()> showFavourites;
    std::function<void()> showLocations;
    std::function<void()> showSettings;
    std::function<void()> closeWindow;
    // Asks for a line of text: title and initial value; none when cancelled.
    std::function<std::optional<QString>(const QString &, const QString &)> prompt;
    // The context menu of the active pane, where its cursor is.
    std::function<void()> showContextMenu;
    // Offers every installed application; calls back with the one chosen, if any.
    std::function<void(std::function<void(const DesktopApplication &)>)> chooseApplication;
};

// Every command of the main window, in the order the help lists them.
CommandTable windowCommands(CommanderModel &model, WindowHooks hooks);

// Moves the active pane's cursor by `step` rows (clamped to the listing); with
// `extending`, every row the cursor lands on or passes is tagged, as holding
// Shift on the arrow keys does row by row.
void moveCursorBy(PaneModel &pane, long long step, bool extending);

// Tags the visible items whose names match the wildcard pattern (`*`, `?`,
// `[…]`, letter case ignored); several patterns may be given separated by ';'.
// Returns how many were newly tagged.
int tagMatching(PaneModel &pane, const QString &patterns);
void invertTags(PaneModel &pane);

} // namespace quillorn
