#include "app/quillornapp.h"

#include "app/applicationmenu.h"
#include "app/commanderview.h"
#include "app/quitguard.h"
#include "app/settingswindow.h"
#include "model/commandermodel.h"
#include "model/panemodel.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"
#include "platform/desktop/updater.h"

#include <algorithm>

namespace quillorn {

QuillornApp::QuillornApp(const std::vector<std::filesystem::path> &targets, Preferences *preferences)
    : m_preferences(preferences ? *preferences : Preferences::standard())
{
    // The updater exists in every run; a release preview only keeps it from starting.
    m_updater = std::make_unique<Updater>(m_preferences, !releasePreview());

    // The window fills in the desktop's services, with their dialogs over itself.
    CommanderModelOptions options;
    options.panes.preferences = preferences;
    m_window = std::make_unique<CommanderView>(std::move(options));
    m_window->setObjectName(QStringLiteral("commander"));
    new QuitGuard(m_window.get());
    m_window->setShowSettings([this] { showSettings(); });
    m_menu = new ApplicationMenu(*m_window, *m_updater, m_window->commands());

    open(targets);
}

QuillornApp::~QuillornApp()
{
    delete m_settings;
}

bool QuillornApp::releasePreview()
{
    return qEnvironmentVariableIsSet(releasePreviewVariable);
}

void QuillornApp::open(const std::vector<std::filesystem::path> &targets)
{
    if (targets.empty())
        return;
    CommanderModel &model = m_window->model();
    PaneModel &left = model.left();
    model.setActiveLeft(true);
    // Items of one folder, in the order given: one tab each.
    std::vector<std::pair<std::filesystem::path, std::vector<std::filesystem::path>>> items;
    for (const std::filesystem::path &target : targets) {
        std::error_code error;
        if (std::filesystem::is_directory(target, error)) {
            left.newTab();
            left.navigate(target);
            continue;
        }
        const auto folder = std::find_if(items.begin(), items.end(), [&](const auto &group) {
            return group.first == target.parent_path();
        });
        if (folder == items.end())
            items.push_back({target.parent_path(), {target}});
        else
            folder->second.push_back(target);
    }
    for (const auto &group : items) {
        left.newTab();
        left.reveal(group.second);
    }
}

void QuillornApp::showInfo(const std::filesystem::path &item)
{
    open({item});
    m_window->model().setTool(ToolSheet::Info{item});
}

void QuillornApp::present(const QString &activationToken)
{
    // Wayland compositors raise a window only with the token of the program
    // that asked; Qt reads it from the environment when activating.
    if (!activationToken.isEmpty())
        qputenv("XDG_ACTIVATION_TOKEN", activationToken.toUtf8());
    if (m_window->isMinimized())
        m_window->showNormal();
    else
        m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

SettingsWindow &QuillornApp::showSettings()
{
    if (!m_settings) {
        m_settings = new SettingsWindow(m_preferences, *m_updater);
        m_settings->setAttribute(Qt::WA_DeleteOnClose);
        // The environment's theme, when it names one, still wins over the choice.
        connect(m_settings, &SettingsWindow::themeChosen, this,
                [this] { m_window->applyTheme(chooseCommanderTheme(m_preferences)); });
    }
    m_settings->show();
    m_settings->raise();
    m_settings->activateWindow();
    return *m_settings;
}

} // namespace quillorn
