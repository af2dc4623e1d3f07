#include "app/commanderview.h"

#include "app/applicationchooser.h"
#include "app/commanderappdelegate.h"
#include "app/commandertoolbar.h"
#include "app/detail/paneheaderbar.h"
#include "app/detail/panelayout.h"
#include "app/detail/panetableview.h"
#include "app/filepane.h"
#include "app/functionkeybar.h"
#include "app/keyhandler.h"
#include "app/panecontextmenu.h"
#include "app/statusline.h"
#include "app/themepalette.h"
#include "model/commanderthemecolours.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"
#include "platform/desktop/fileclipboard.h"
#include "platform/desktop/removabledrives.h"
#include "platform/desktop/standarddesktopservices.h"
#include "quillorn/version.h"
#include "tools/queueview.h"
#include "tools/toolhost.h"

#include <QApplication>
#include <QClipboard>
#include <QGuiApplication>
#include <QHeaderView>
#include <QHideEvent>
#include <QSplitter>
#include <QVBoxLayout>
#include <set>

namespace quillorn {

namespace {

// Every desktop service the caller left empty is the real one.
CommanderModelOptions withDefaults(CommanderModelOptions options, QWidget *window)
{
    DesktopServices standard = standardDesktopServices(window);
    DesktopServices &desktop = options.desktop;
    auto fill = [](auto &member, auto &fallback) {
        if (!member)
            member = std::move(fallback);
    };
    fill(desktop.openFile, standard.openFile);
    fill(desktop.writeClipboard, standard.writeClipboard);
    fill(desktop.readClipboard, standard.readClipboard);
    fill(desktop.cutToClipboard, standard.cutToClipboard);
    fill(desktop.clipboardIsCut, standard.clipboardIsCut);
    fill(desktop.preview, standard.preview);
    fill(desktop.alert, standard.alert);
    fill(desktop.prompt, standard.prompt);
    fill(desktop.requestQuit, standard.requestQuit);
    // The panes' periodic refresh runs only while Quillorn is the application in front.
    if (!options.panes.applicationIsActive)
        options.panes.applicationIsActive = [] {
            return QGuiApplication::applicationState() == Qt::ApplicationActive;
        };
    return options;
}

} // namespace

CommanderView::CommanderView(CommanderModelOptions options, QWidget *parent)
    : QMainWindow(parent),
      m_preferences(options.panes.preferences ? *options.panes.preferences : Preferences::standard())
{
    setWindowTitle(QStringLiteral("Quillorn v") + QString::fromLatin1(kVersion));
    resize(1180, 740);
    setMinimumSize(900, 480);
    restorePlacement();

    options = withDefaults(std::move(options), this);
    const DesktopServices desktop = options.desktop; // the commands and the editor use some too
    m_model = std::make_unique<CommanderModel>(std::move(options));

    m_splitter = new QSplitter(Qt::Horizontal);
    m_splitter->setObjectName(QStringLiteral("paneSplitter"));
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setHandleWidth(6);
    m_drives = new RemovableDrives(QDBusConnection::systemBus(), this);
    m_leftPane = makePane(m_model->left(), true);
    m_rightPane = makePane(m_model->right(), false);
    m_splitter->setStretchFactor(0, 1);
    m_splitter->setStretchFactor(1, 1);

    auto *content = new QWidget(this);
    content->setObjectName(QStringLiteral("commanderContent"));
    content->setAutoFillBackground(true);
    content->setFocusPolicy(Qt::StrongFocus);
    auto *layout = new QVBoxLayout(content);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->addWidget(m_splitter, 1);
    setCentralWidget(content);
    m_commands = windowCommands(*m_model, hooks(desktop));
    m_model->setHelpDetails([this] { return QStringLiteral("More keys:\n") + m_commands.keyList(); });
    buildSurroundings(layout, desktop.openFile);

    connect(m_model.get(), &CommanderModel::activeLeftChanged, this, &CommanderView::showActivePane);
    applyTheme(chooseCommanderTheme(m_preferences));
    showActivePane();
}

CommanderView::~CommanderView()
{
    if (isVisible())
        savePlacement();
    // Everything that observes the model goes before it: the key monitor, the
    // menu, the sheet, the bars and the pane views.
    delete m_monitor;
    delete m_contextMenu;
    delete m_toolHost;
    delete m_toolBar;
    delete m_queueView;
    delete m_statusLine;
    delete m_functionKeys;
    delete m_splitter;
}

void CommanderView::buildSurroundings(QVBoxLayout *layout,
                                      std::function<void(const std::filesystem::path &)> openFile)
{
    QWidget *content = centralWidget();
    m_toolBar = new CommanderToolBar(*m_model, m_commands, content);
    layout->insertWidget(0, m_toolBar);
    m_queueView = new QueueView(m_model->queue(), content);
    layout->addWidget(m_queueView);
    m_statusLine = new StatusLine(*m_model, content);
    layout->addWidget(m_statusLine);
    m_functionKeys = new FunctionKeyBar(m_commands, content);
    layout->addWidget(m_functionKeys);
    m_contextMenu = new PaneContextMenu(m_commands, this);
    m_toolHost = new ToolHost(*m_model, this);
    // The editor's "Open in default app", and its unsaved state for the quit guard.
    m_toolHost->setServices(
        {std::move(openFile), [](bool unsaved) { CommanderAppDelegate::unsavedEditor = unsaved; }});
    connect(qApp, &QGuiApplication::applicationStateChanged, this, &CommanderView::refreshWhenActive);
    // Items cut here stop looking cut once anything else is copied or cut,
    // in this program or another.
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this, [this] {
        const std::vector<std::filesystem::path> items = FileClipboard::read();
        std::set<std::filesystem::path> cut = m_model->left().cut();
        cut.insert(m_model->right().cut().begin(), m_model->right().cut().end());
        if (!FileClipboard::readIsCut() || std::set(items.begin(), items.end()) != cut)
            m_model->forgetCut();
    });
}

void CommanderView::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    // The quit guard learns the queue, then the keyboard is taken over, once.
    CommanderAppDelegate::queue = &m_model->queue();
    if (!m_monitor) {
        m_monitor = new KeyHandler(*m_model, KeyHandler::windowGate(*m_model, this), &m_commands, this);
        qApp->installEventFilter(m_monitor);
        // Keys reach the panes only while no text field has the focus, so the
        // window starts with the focus on its content, not on a pane's field.
        centralWidget()->setFocus(Qt::OtherFocusReason);
    }
}

WindowHooks CommanderView::hooks(DesktopServices desktop)
{
    WindowHooks hooks;
    hooks.openFile = desktop.openFile;
    hooks.prompt = desktop.prompt;
    hooks.rowsPerPage = [this] { return activePane()->rowsPerPage(); };
    hooks.focusFilter = [this] { activePane()->focusFilter(); };
    hooks.focusPath = [this] { activePane()->focusPath(); };
    hooks.queueShown = [this] { return queueList() != nullptr; };
    hooks.focusQueue = [this] {
        if (QWidget *list = queueList())
            list->setFocus(Qt::ShortcutFocusReason);
    };
    hooks.showFavourites = [this] { activePane()->showFavouritesMenu(); };
    hooks.showLocations = [this] { activePane()->showLocationsMenu(); };
    hooks.showSettings = [this] {
        if (m_showSettings)
            m_showSettings();
    };
    hooks.closeWindow = [this] { close(); };
    hooks.showContextMenu = [this] {
        showContextMenu(m_model->activeLeft(), activePane()->menuPosition(),
                        !m_model->active().selected().empty());
    };
    hooks.chooseApplication = [this](std::function<void(const DesktopApplication &)> chosen) {
        ApplicationChooser::offer(allApplications(), std::move(chosen), this);
    };
    return hooks;
}

FilePane *CommanderView::activePane() const
{
    return m_model->activeLeft() ? m_leftPane : m_rightPane;
}

// Once the menu closes the keyboard is back on the pane it was opened for.
void CommanderView::showContextMenu(bool left, QPoint at, bool onItems)
{
    m_contextMenu->popUp(onItems ? PaneContextMenu::Kind::items : PaneContextMenu::Kind::folder, at,
                         [this, left] {
                             m_model->setActiveLeft(left);
                             if (!QApplication::activeModalWidget())
                                 centralWidget()->setFocus(Qt::PopupFocusReason);
                         });
}

// The list of the queue panel, when it is on screen.
QWidget *CommanderView::queueList() const
{
    QWidget *list = m_queueView ? m_queueView->findChild<QWidget *>(QStringLiteral("queueList")) : nullptr;
    return list && list->isVisible() ? list : nullptr;
}

void CommanderView::hideEvent(QHideEvent *event)
{
    QMainWindow::hideEvent(event);
    if (!event->spontaneous())
        savePlacement();
}

void CommanderView::savePlacement()
{
    // A maximized or full-screen window comes back so, over the place it had before.
    const QRect placement = isMaximized() || isFullScreen() ? normalGeometry() : geometry();
    m_preferences.setInteger(QStringLiteral("window.x"), placement.x());
    m_preferences.setInteger(QStringLiteral("window.y"), placement.y());
    m_preferences.setInteger(QStringLiteral("window.width"), placement.width());
    m_preferences.setInteger(QStringLiteral("window.height"), placement.height());
    m_preferences.setBoolean(QStringLiteral("window.maximized"), isMaximized());
    m_preferences.sync();
}

void CommanderView::restorePlacement()
{
    if (!m_preferences.contains(QStringLiteral("window.width")))
        return;
    const QRect saved(m_preferences.integer(QStringLiteral("window.x")),
                      m_preferences.integer(QStringLiteral("window.y")),
                      m_preferences.integer(QStringLiteral("window.width")),
                      m_preferences.integer(QStringLiteral("window.height")));
    // The middle of the top edge, by which the window is taken to be moved,
    // must be on a screen that is there now: a monitor unplugged since must
    // not leave the window out of reach.
    const QPoint handle(saved.center().x(), saved.top());
    if (saved.isEmpty() || !QGuiApplication::screenAt(handle))
        return;
    setGeometry(saved);
    if (m_preferences.boolean(QStringLiteral("window.maximized")))
        setWindowState(windowState() | Qt::WindowMaximized);
}

void CommanderView::refreshWhenActive(Qt::ApplicationState state)
{
    // Whatever changed while another application was in front shows at once.
    if (state != Qt::ApplicationActive)
        return;
    m_model->left().refresh();
    m_model->right().refresh();
}

FilePane *CommanderView::makePane(PaneModel &pane, bool left)
{
    auto *view = new FilePane(pane, m_splitter);
    view->setObjectName(left ? QStringLiteral("leftPane") : QStringLiteral("rightPane"));
    // However short the window, the lists keep a few rows; the queue panel
    // below scrolls instead.
    detail::PaneTableView *list = view->listView();
    list->setAccessibleName(left ? tr("Left pane") : tr("Right pane"));
    list->setMinimumHeight(2 * list->frameWidth() + list->horizontalHeader()->sizeHint().height() +
                           detail::kMinimumListedRows * list->verticalHeader()->defaultSectionSize());
    m_splitter->addWidget(view);
    view->activate = [this, left] { m_model->setActiveLeft(left); };
    view->open = [this, left](const FileEntry &entry) {
        m_model->setActiveLeft(left);
        m_model->open(entry);
    };
    // Dropping always offers a copy into the folder this pane shows.
    view->drop = [this, &pane](const std::vector<std::filesystem::path> &files) {
        m_model->transfer(files, pane.directory(), false);
    };
    view->contextMenu = [this, left](QPoint at, bool onItems) { showContextMenu(left, at, onItems); };
    view->headerBar()->setDrives(m_drives);
    view->headerBar()->setReporter([this](const QString &message) { m_model->setStatus(message); });
    view->headerBar()->setTrashOpener([this, left](std::vector<std::filesystem::path> volumes) {
        m_model->setActiveLeft(left);
        m_model->openTrash(std::move(volumes));
    });
    return view;
}

void CommanderView::showActivePane()
{
    m_leftPane->setActive(m_model->activeLeft());
    m_rightPane->setActive(!m_model->activeLeft());
}

void CommanderView::applyTheme(CommanderTheme theme)
{
    m_theme = theme;
    CommanderThemeKey::set(this, theme);
    // Alerts, prompts, menus and tooltips open in windows of their own: the
    // application's palette and style sheet carry the theme to them.
    qApp->setPalette(themePalette(theme));
    qApp->setStyleSheet(themeStyleSheet(theme));
    setPalette(themePalette(theme));
    m_leftPane->setTheme(theme);
    m_rightPane->setTheme(theme);
    const CommanderThemeColours palette = colours(theme);
    if (m_toolBar) {
        m_toolBar->setTheme(theme);
        m_queueView->setColours(palette);
        m_statusLine->setTheme(theme);
        m_functionKeys->setTheme(theme);
    }
}

} // namespace quillorn
