#include "app/commanderview.h"

#include "app/filepane.h"
#include "app/themepalette.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"
#include "platform/desktop/standarddesktopservices.h"
#include "quillorn/version.h"

#include <QSplitter>
#include <QVBoxLayout>

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
    fill(desktop.preview, standard.preview);
    fill(desktop.alert, standard.alert);
    fill(desktop.prompt, standard.prompt);
    fill(desktop.requestQuit, standard.requestQuit);
    return options;
}

} // namespace

CommanderView::CommanderView(CommanderModelOptions options, QWidget *parent) : QMainWindow(parent)
{
    setWindowTitle(QStringLiteral("Quillorn v") + QString::fromLatin1(kVersion));
    resize(1180, 740);
    setMinimumSize(900, 480);

    const Preferences &preferences =
        options.panes.preferences ? *options.panes.preferences : Preferences::standard();
    m_model = std::make_unique<CommanderModel>(withDefaults(std::move(options), this));

    m_splitter = new QSplitter(Qt::Horizontal);
    m_splitter->setObjectName(QStringLiteral("paneSplitter"));
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setHandleWidth(6);
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

    connect(m_model.get(), &CommanderModel::activeLeftChanged, this, &CommanderView::showActivePane);
    applyTheme(chooseCommanderTheme(preferences));
    showActivePane();
}

CommanderView::~CommanderView()
{
    // The pane views observe the model's panes: they go first.
    delete m_splitter;
}

FilePane *CommanderView::makePane(PaneModel &pane, bool left)
{
    auto *view = new FilePane(pane, m_splitter);
    view->setObjectName(left ? QStringLiteral("leftPane") : QStringLiteral("rightPane"));
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
    setPalette(themePalette(theme));
    m_leftPane->setTheme(theme);
    m_rightPane->setTheme(theme);
}

} // namespace quillorn
