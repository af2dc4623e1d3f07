#include "app/windowcommands.h"

#include "app/detail/toolbarsymbols.h"
#include "app/functionkeybar.h"
#include "model/commandermodel.h"
#include "platform/core/displaytext.h"

#include <QApplication>
#include <QClipboard>
#include <QRegularExpression>
#include <algorithm>
#include <limits>
#include <set>

namespace quillorn {

namespace {

using detail::ToolbarSymbol;
using Invocation = Command::Invocation;

// A command that runs a hook of the window, when the window gave one.
std::function<void(const Invocation &)> calling(std::function<void()> hook)
{
    return [hook = std::move(hook)](const Invocation &) {
        if (hook)
            hook();
    };
}

void sortBy(PaneModel &pane, FileSort key)
{
    // As a click on the column's header: again on the same column reverses it.
    if (key == pane.sort()) {
        pane.setAscending(!pane.ascending());
    } else {
        pane.setSort(key);
        pane.setAscending(true);
    }
}

void stepTab(PaneModel &pane, int step)
{
    const int count = static_cast<int>(pane.tabs().size());
    if (count > 1)
        pane.selectTab((pane.tabIndex() + step + count) % count);
}

// Whether F<number> has items to act on: Rename takes exactly one, View, Edit,
// Copy, Move and Trash at least one; the others act on the folder or the window.
std::function<bool()> functionKeyEnabled(CommanderModel &model, int number)
{
    switch (number) {
    case 2:
        return [&model] { return model.active().selected().size() == 1; };
    case 3:
    case 4:
    case 5:
    case 6:
    case 8:
        return [&model] { return !model.active().selected().empty(); };
    default:
        return {};
    }
}

// The paths as the panes show them, one per line: text for a terminal or a
// message, where a name's bytes outside UTF-8 show as the replacement mark.
void copyPaths(CommanderModel &model)
{
    const std::vector<std::filesystem::path> items = model.active().selected();
    QStringList lines;
    for (const std::filesystem::path &item : items)
        lines << displayText(item);
    QGuiApplication::clipboard()->setText(lines.join(QLatin1Char('\n')));
    model.setStatus(QStringLiteral("Copied %1 path(s)").arg(items.size()));
}

using Items = std::vector<std::filesystem::path>;
using Launcher = std::function<void(const DesktopApplication &)>;

// "Open with": the applications of the first item's type, the default first,
// then the choice among all applications. The items are the ones selected when
// the submenu opened.
std::vector<Command> openWithChoices(const Items &items, std::function<Launcher(Items)> launcher,
                                     std::function<void(Items)> choose)
{
    std::vector<Command> choices;
    if (items.empty())
        return choices;
    for (const DesktopApplication &application : applicationsFor(mimeTypeOf(items.front())))
        choices.push_back(
            {.id = QStringLiteral("openWith:") + application.id,
             .text = application.name,
             .invoke = [launch = launcher(items), application](const Invocation &) { launch(application); }});
    choices.push_back({.id = QStringLiteral("otherApplication"),
                       .text = QStringLiteral("Other application…"),
                       .invoke = [choose, items](const Invocation &) { choose(items); }});
    return choices;
}

// The items' commands beyond the tool bar's, which the context menu offers.
void addItemCommands(CommanderModel &model, const WindowHooks &hooks, std::vector<Command> &table)
{
    auto hasItems = [&model] { return !model.active().selected().empty(); };
    const auto launcher = [&model](Items items) -> Launcher {
        return [&model, items = std::move(items)](const DesktopApplication &application) {
            if (const std::optional<QString> failure = launchApplication(application.id, items))
                model.setStatus(*failure);
        };
    };
    const auto choose = [launcher, chooseApplication = hooks.chooseApplication](Items items) {
        if (chooseApplication && !items.empty())
            chooseApplication(launcher(std::move(items)));
    };
    table.push_back(
        {.id = QStringLiteral("openWith"),
         .text = QStringLiteral("Open with"),
         .enabled = hasItems,
         .invoke = [&model, choose](const Invocation &) { choose(model.active().selected()); },
         .choices = [&model, launcher,
                     choose] { return openWithChoices(model.active().selected(), launcher, choose); }});
    table.push_back(
        {.id = QStringLiteral("extractArchive"),
         .text = QStringLiteral("Extract archive"),
         .help = QStringLiteral("Extract the archives, each into a new folder in the other pane"),
         .keys = {Qt::ALT | Qt::SHIFT | Qt::Key_E},
         .enabled = hasItems,
         .invoke = [&model](const Invocation &) { model.extractArchives(model.active().selected()); }});
    table.push_back(
        {.id = QStringLiteral("createArchive"),
         .text = QStringLiteral("Create archive…"),
         .help = QStringLiteral("Pack the items into a zip, tar.gz, tar.xz, tar.zst or 7z in the other pane"),
         .keys = {Qt::ALT | Qt::SHIFT | Qt::Key_A},
         .enabled = hasItems,
         .invoke = [&model](const Invocation &) { model.createArchive(model.active().selected()); }});
    table.push_back({.id = QStringLiteral("copyPath"),
                     .text = QStringLiteral("Copy path"),
                     .help = QStringLiteral("Copy the items' full paths as text"),
                     .keys = {Qt::CTRL | Qt::SHIFT | Qt::Key_C},
                     .enabled = hasItems,
                     .invoke = [&model](const Invocation &) { copyPaths(model); }});
}

QRegularExpression wildcard(const QString &pattern)
{
    return QRegularExpression(QRegularExpression::wildcardToRegularExpression(
                                  pattern, QRegularExpression::UnanchoredWildcardConversion),
                              QRegularExpression::CaseInsensitiveOption);
}

// The folders among the rows, or among the items a command acts on.
std::vector<std::filesystem::path> visibleFolders(const PaneModel &pane)
{
    std::vector<std::filesystem::path> folders;
    for (int row = 0; row < pane.visibleCount(); ++row)
        if (const FileEntry &entry = pane.visibleAt(row); entry.directory)
            folders.push_back(entry.url());
    return folders;
}

std::vector<std::filesystem::path> selectedFolders(const PaneModel &pane)
{
    std::vector<std::filesystem::path> folders;
    for (std::filesystem::path &item : pane.selected())
        if (const auto row = pane.visibleIndexOf(item); row && pane.visibleAt(*row).directory)
            folders.push_back(std::move(item));
    return folders;
}

} // namespace

void moveCursorBy(PaneModel &pane, long long step, bool extending)
{
    const long long count = pane.visibleCount();
    if (count == 0 || step == 0)
        return;
    const std::optional<int> current = pane.cursor() ? pane.visibleIndexOf(*pane.cursor()) : std::nullopt;
    const long long from = current ? *current : (step < 0 ? count : -1);
    const long long to = std::clamp(from + step, 0LL, count - 1);
    if (extending) {
        std::set<std::filesystem::path> tags = pane.selection();
        const std::size_t before = tags.size();
        for (long long row = std::min(from, to); row <= std::max(from, to); ++row)
            if (row != from && row >= 0 && row < count)
                tags.insert(pane.visibleAt(static_cast<int>(row)).url());
        if (tags.size() != before)
            pane.setSelection(std::move(tags));
    }
    pane.setCursor(pane.visibleAt(static_cast<int>(to)).url());
}

int tagMatching(PaneModel &pane, const QString &patterns)
{
    std::vector<QRegularExpression> expressions;
    for (const QString &pattern : patterns.split(QLatin1Char(';'), Qt::SkipEmptyParts))
        if (const QString trimmed = pattern.trimmed(); !trimmed.isEmpty())
            expressions.push_back(wildcard(trimmed));
    std::set<std::filesystem::path> tags = pane.selection();
    int added = 0;
    for (int row = 0; row < pane.visibleCount(); ++row) {
        const FileEntry &entry = pane.visibleAt(row);
        const QString name = displayName(entry.url());
        const bool matches =
            std::any_of(expressions.begin(), expressions.end(),
                        [&](const QRegularExpression &e) { return e.match(name).hasMatch(); });
        if (matches && tags.insert(entry.id()).second)
            ++added;
    }
    if (added > 0)
        pane.setSelection(std::move(tags));
    return added;
}

void invertTags(PaneModel &pane)
{
    std::set<std::filesystem::path> tags;
    for (int row = 0; row < pane.visibleCount(); ++row)
        if (const FileEntry &entry = pane.visibleAt(row); !pane.isTagged(entry.id()))
            tags.insert(entry.id());
    pane.setSelection(std::move(tags));
}

CommandTable windowCommands(CommanderModel &model, WindowHooks hooks)
{
    auto hasItems = [&model] { return !model.active().selected().empty(); };
    auto activePane = [&model]() -> PaneModel & { return model.active(); };
    std::vector<Command> table;
    auto add = [&table](Command command) { table.push_back(std::move(command)); };

    // The function keys: their keys are the fixed rows of the key handler.
    for (int number = 1; number <= 10; ++number) {
        Command command;
        command.id = QStringLiteral("f%1").arg(number);
        command.text = FunctionKeyBar::actions[number - 1];
        command.keyText = QStringLiteral("F%1").arg(number);
        command.functionKey = number;
        if (number == 5 || number == 6)
            command.menuText = command.text + QStringLiteral(" to other pane");
        command.enabled = functionKeyEnabled(model, number);
        command.invoke = [&model, number](const Invocation &) { model.perform(number); };
        add(std::move(command));
    }

    // The tool bar, in its order.
    add({.id = QStringLiteral("search"),
         .text = QStringLiteral("Search"),
         .help = QStringLiteral("Search names or file contents below this folder"),
         .keyText = QStringLiteral("Ctrl+F"),
         .toolBarSymbol = int(ToolbarSymbol::magnifyingGlass),
         .invoke = [&model](const Invocation &) { model.openSearch(); }});
    add({.id = QStringLiteral("compare"),
         .text = QStringLiteral("Compare"),
         .help = QStringLiteral("Compare the two panes' folders"),
         // Shift makes no difference to "="; where "+" shares its key, Ctrl+Shift+= arrives as Ctrl++.
         .keys = {Qt::CTRL | Qt::Key_Equal, Qt::CTRL | Qt::Key_Plus},
         .toolBarSymbol = int(ToolbarSymbol::arrowsLeftRight),
         .invoke = [&model](const Invocation &) { model.openCompare(); }});
    add({.id = QStringLiteral("multiRename"),
         .text = QStringLiteral("Multi-rename…"),
         .help = QStringLiteral("Rename the items by a pattern"),
         .keys = {Qt::CTRL | Qt::Key_M},
         .enabled = hasItems,
         .invoke = [&model](const Invocation &) { model.openMultiRename(); }});
    add({.id = QStringLiteral("info"),
         .text = QStringLiteral("Info"),
         .keyText = QStringLiteral("Ctrl+I"),
         .toolBarSymbol = int(ToolbarSymbol::infoCircle),
         .enabled = hasItems,
         .invoke = [&model](const Invocation &) { model.openInfo(); }});
    add({.id = QStringLiteral("open"),
         .text = QStringLiteral("Open"),
         .help = QStringLiteral("Open with the default application"),
         .toolBarSymbol = int(ToolbarSymbol::openApp),
         .enabled = hasItems,
         .invoke = [&model, openFile = hooks.openFile](const Invocation &) {
             for (const std::filesystem::path &item : model.active().selected())
                 if (openFile)
                     openFile(item);
         }});
    add({.id = QStringLiteral("connect"),
         .text = QStringLiteral("Connect"),
         .help = QStringLiteral("Connect to a server"),
         .keys = {Qt::CTRL | Qt::Key_N},
         .toolBarSymbol = int(ToolbarSymbol::network),
         .invoke = [&model](const Invocation &) { model.connect(); }});
    add({.id = QStringLiteral("copyRefs"),
         .text = QStringLiteral("Copy refs"),
         .help = QStringLiteral("Copy the items to the clipboard"),
         .keyText = QStringLiteral("Ctrl+C"),
         .toolBarSymbol = int(ToolbarSymbol::docOnDoc),
         .enabled = hasItems,
         .invoke = [&model](const Invocation &) { model.clipboardCopy(); }});
    add({.id = QStringLiteral("paste"),
         .text = QStringLiteral("Paste"),
         .help = QStringLiteral("Copy the clipboard's items here, or move them when they were cut"),
         .keyText = QStringLiteral("Ctrl+V"),
         .toolBarSymbol = int(ToolbarSymbol::docOnClipboard),
         .invoke = [&model](const Invocation &) { model.clipboardPaste(); }});
    add({.id = QStringLiteral("cut"),
         .text = QStringLiteral("Cut"),
         .help = QStringLiteral("Cut the items: a paste moves them"),
         .keys = {Qt::CTRL | Qt::Key_X},
         .enabled = hasItems,
         .invoke = [&model](const Invocation &) { model.clipboardCut(); }});
    add({.id = QStringLiteral("newTab"),
         .text = QStringLiteral("New tab"),
         .keyText = QStringLiteral("Ctrl+T"),
         .toolBarSymbol = int(ToolbarSymbol::plus),
         .invoke = [activePane](const Invocation &) { activePane().newTab(); }});
    add({.id = QStringLiteral("closeTab"),
         .text = QStringLiteral("Close"),
         .help = QStringLiteral("Close tab"),
         .keyText = QStringLiteral("Ctrl+W"),
         .toolBarSymbol = int(ToolbarSymbol::xmark),
         .enabled = [activePane] { return activePane().tabs().size() != 1; },
         .invoke = [activePane](const Invocation &) { activePane().closeTab(); }});
    addItemCommands(model, hooks, table);

    add({.id = QStringLiteral("undo"),
         .text = QStringLiteral("Undo"),
         .help = QStringLiteral("Undo the last rename, multi-rename, new folder, trash, copy or move"),
         .currentText = [&model] { return model.canUndo() ? "Undo " + model.nextUndo() : QString(); },
         .keys = {Qt::CTRL | Qt::Key_Z},
         .enabled = [&model] { return model.canUndo(); },
         .invoke = [&model](const Invocation &) { model.undo(); }});

    // Moving through the listing and the tabs.
    const auto page = [rows = hooks.rowsPerPage] { return std::max(1, rows ? rows() - 1 : 20); };
    const auto mover = [activePane](std::function<long long()> step) {
        return
            [activePane, step](const Invocation &how) { moveCursorBy(activePane(), step(), how.extending); };
    };
    const long long whole = std::numeric_limits<int>::max();
    add({.id = QStringLiteral("pageUp"),
         .text = QStringLiteral("Page up"),
         .help = QStringLiteral("Page up (Shift tags on the way)"),
         .keys = {QKeyCombination(Qt::Key_PageUp)},
         .shiftExtends = true,
         .invoke = mover([page] { return -page(); })});
    add({.id = QStringLiteral("pageDown"),
         .text = QStringLiteral("Page down"),
         .help = QStringLiteral("Page down (Shift tags on the way)"),
         .keys = {QKeyCombination(Qt::Key_PageDown)},
         .shiftExtends = true,
         .invoke = mover(page)});
    add({.id = QStringLiteral("first"),
         .text = QStringLiteral("First item"),
         .help = QStringLiteral("First item (Shift tags on the way)"),
         .keys = {QKeyCombination(Qt::Key_Home)},
         .shiftExtends = true,
         .invoke = mover([whole] { return -whole; })});
    add({.id = QStringLiteral("last"),
         .text = QStringLiteral("Last item"),
         .help = QStringLiteral("Last item (Shift tags on the way)"),
         .keys = {QKeyCombination(Qt::Key_End)},
         .shiftExtends = true,
         .invoke = mover([whole] { return whole; })});
    add({.id = QStringLiteral("nextTab"),
         .text = QStringLiteral("Next tab"),
         .keys = {Qt::CTRL | Qt::Key_Tab},
         .invoke = [activePane](const Invocation &) { stepTab(activePane(), 1); }});
    add({.id = QStringLiteral("previousTab"),
         .text = QStringLiteral("Previous tab"),
         // Shift+Tab arrives as a key of its own on most platforms, as Tab on some.
         .keys = {Qt::CTRL | Qt::SHIFT | Qt::Key_Backtab, Qt::CTRL | Qt::SHIFT | Qt::Key_Tab},
         .invoke = [activePane](const Invocation &) { stepTab(activePane(), -1); }});
    add({.id = QStringLiteral("favourites"),
         .text = QStringLiteral("Favourites…"),
         .help = QStringLiteral("Favourites menu"),
         .keys = {Qt::CTRL | Qt::Key_D},
         .invoke = calling(hooks.showFavourites)});
    add({.id = QStringLiteral("locations"),
         .text = QStringLiteral("Locations…"),
         .help = QStringLiteral("Locations menu: home, root, the Trash, volumes, shares and drives"),
         .keys = {Qt::CTRL | Qt::SHIFT | Qt::Key_D},
         .invoke = calling(hooks.showLocations)});

    // The fields and panels of the window.
    add({.id = QStringLiteral("filter"),
         .text = QStringLiteral("Filter"),
         .help = QStringLiteral("Filter field (↓ back to the list, Escape clears it)"),
         .keys = {Qt::CTRL | Qt::Key_K},
         .invoke = calling(hooks.focusFilter)});
    add({.id = QStringLiteral("path"),
         .text = QStringLiteral("Path"),
         .help = QStringLiteral("Path field (Escape goes back to the list)"),
         .keys = {Qt::CTRL | Qt::Key_L},
         .invoke = calling(hooks.focusPath)});
    add({.id = QStringLiteral("contextMenu"),
         .text = QStringLiteral("Context menu"),
         .help = QStringLiteral("Context menu of the items, or of the folder with none selected"),
         .keys = {QKeyCombination(Qt::Key_Menu)},
         .invoke = calling(hooks.showContextMenu)});
    add({.id = QStringLiteral("queue"),
         .text = QStringLiteral("Queue"),
         .help = QStringLiteral("Queue panel (Escape goes back to the panes)"),
         .keys = {Qt::CTRL | Qt::Key_J},
         .enabled = [shown = hooks.queueShown] { return !shown || shown(); },
         .invoke = calling(hooks.focusQueue)});

    // Order and tags.
    const std::pair<FileSort, QString> sorts[] = {
        {FileSort::name, QStringLiteral("name")},
        {FileSort::size, QStringLiteral("size")},
        {FileSort::modified, QStringLiteral("modified")},
    };
    const auto sortCommand = [activePane, sorts](int number) {
        const auto &[key, name] = sorts[number - 1];
        Command command;
        command.id = QStringLiteral("sortBy%1").arg(number);
        command.text = QStringLiteral("Sort by %1").arg(name);
        command.help = command.text + QStringLiteral(" (again: reverse)");
        command.keys = {Qt::CTRL | Qt::Key(Qt::Key_0 + number)};
        command.invoke = [activePane, key](const Invocation &) { sortBy(activePane(), key); };
        command.checked = [activePane, key] { return activePane().sort() == key; };
        return command;
    };
    for (int number = 1; number <= int(std::size(sorts)); ++number)
        add(sortCommand(number));
    add({.id = QStringLiteral("sortBy"), .text = QStringLiteral("Sort by"), .choices = [sortCommand, sorts] {
             std::vector<Command> choices;
             for (int number = 1; number <= int(std::size(sorts)); ++number) {
                 choices.push_back(sortCommand(number));
                 choices.back().menuText = sorts[number - 1].second;
             }
             return choices;
         }});
    add({.id = QStringLiteral("showHidden"),
         .text = QStringLiteral("Show hidden"),
         .help = QStringLiteral("Show or hide hidden files"),
         // The key is a row of the key handler's own table; named here for the help and menus.
         .keyText = QStringLiteral("Ctrl+Shift+."),
         .invoke =
             [activePane](const Invocation &) { activePane().setShowHidden(!activePane().showHidden()); },
         .checked = [activePane] { return activePane().showHidden(); }});
    add({.id = QStringLiteral("tagPattern"),
         .text = QStringLiteral("Tag by pattern…"),
         .keys = {QKeyCombination(Qt::Key_Plus)},
         .invoke = [activePane, prompt = hooks.prompt](const Invocation &) {
             if (!prompt)
                 return;
             if (const std::optional<QString> answer =
                     prompt(QStringLiteral("Tag by pattern"), QStringLiteral("*")))
                 tagMatching(activePane(), *answer);
         }});
    add({.id = QStringLiteral("untagAll"),
         .text = QStringLiteral("Untag all"),
         .keys = {QKeyCombination(Qt::Key_Minus)},
         .invoke = [activePane](const Invocation &) { activePane().setSelection({}); }});
    add({.id = QStringLiteral("invertTags"),
         .text = QStringLiteral("Invert tags"),
         .keys = {QKeyCombination(Qt::Key_Asterisk)},
         .invoke = [activePane](const Invocation &) { invertTags(activePane()); }});

    // Folder sizes, counted in the background; the size column shows them.
    add({.id = QStringLiteral("folderSizes"),
         .text = QStringLiteral("Count folder sizes"),
         .help = QStringLiteral("Count the sizes of all folders shown"),
         .keys = {Qt::ALT | Qt::SHIFT | Qt::Key_Return, Qt::ALT | Qt::SHIFT | Qt::Key_Enter},
         .invoke = [activePane](const Invocation &) {
             activePane().folderSizes().count(visibleFolders(activePane()));
         }});
    add({.id = QStringLiteral("folderSize"),
         .text = QStringLiteral("Count folder size"),
         .help = QStringLiteral("Count the sizes of the selected folders"),
         .enabled = [activePane] { return !selectedFolders(activePane()).empty(); },
         .invoke =
             [activePane](const Invocation &) {
                 activePane().folderSizes().count(selectedFolders(activePane()));
             }});
    add({.id = QStringLiteral("stopFolderSizes"),
         .text = QStringLiteral("Stop counting folder sizes"),
         .keys = {QKeyCombination(Qt::Key_Escape)},
         .enabled = [activePane] { return activePane().folderSizes().counting(); },
         .invoke = [activePane](const Invocation &) { activePane().folderSizes().cancel(); }});
    add({.id = QStringLiteral("typeAhead"),
         .text = QStringLiteral("Jump to the first name that starts with them"),
         .keyText = QStringLiteral("Letters and digits")});

    // The menu bar's own commands.
    add({.id = QStringLiteral("settings"),
         .text = QStringLiteral("Settings…"),
         .keys = {Qt::CTRL | Qt::Key_Comma},
         .menu = QStringLiteral("&Quillorn"),
         .menuShortcut = true,
         .invoke = calling(hooks.showSettings)});
    add({.id = QStringLiteral("quit"),
         .text = QStringLiteral("Quit Quillorn"),
         // Spelled out: the standard keys differ between platform themes.
         .keys = {Qt::CTRL | Qt::Key_Q},
         .menu = QStringLiteral("&Quillorn"),
         .menuShortcut = true,
         // Asking the application, not the window: QCoreApplication::quit first
         // asks every window to close, and the main window's quit guard may refuse.
         .invoke = [](const Invocation &) {
             QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
         }});
    add({.id = QStringLiteral("closeWindow"),
         .text = QStringLiteral("Close Window"),
         .help = QStringLiteral("Close Window (with one tab left)"),
         .keys = {Qt::CTRL | Qt::Key_W},
         .menu = QStringLiteral("&Window"),
         .menuShortcut = true,
         .invoke = calling(hooks.closeWindow)});
    return CommandTable(std::move(table));
}

} // namespace quillorn
