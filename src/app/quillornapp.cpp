#include "app/quillornapp.h"

#include "app/applicationmenu.h"
#include "app/commanderview.h"
#include "app/quitguard.h"
#include "app/settingswindow.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"
#include "platform/desktop/fileurl.h"
#include "platform/desktop/updater.h"

namespace quillorn {

QuillornApp::QuillornApp(const std::vector<std::string> &arguments, Preferences *preferences)
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

    if (const auto folder = folderArgument(arguments)) {
        m_window->model().setActiveLeft(true);
        m_window->model().left().navigate(*folder);
    }
}

QuillornApp::~QuillornApp()
{
    delete m_settings;
}

bool QuillornApp::releasePreview()
{
    return qEnvironmentVariableIsSet(releasePreviewVariable);
}

std::optional<std::filesystem::path> QuillornApp::folderArgument(const std::vector<std::string> &arguments)
{
    for (const std::string &argument : arguments) {
        if (argument.empty() || argument.front() == '-')
            continue;
        const QByteArray bytes = QByteArray::fromStdString(argument);
        if (bytes.toLower().startsWith("file:"))
            return pathFromFileUrl(bytes);
        // Kept as bytes: a folder name need not be valid UTF-8. A relative path
        // is taken from the folder the program was started in.
        std::filesystem::path path = argument;
        if (path.is_relative())
            path = std::filesystem::absolute(path);
        path = path.lexically_normal();
        if (!path.has_filename() && path != path.root_path())
            path = path.parent_path();
        return path;
    }
    return std::nullopt;
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
