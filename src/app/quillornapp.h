#pragma once

#include <QObject>
#include <QPointer>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillorn {

class ApplicationMenu;
class CommanderView;
class Preferences;
class SettingsWindow;
class Updater;

// The application: builds, in this order, the updater (started only outside
// release previews), the one main window with its menu and quit guard, and,
// on demand, the settings window. A folder given on the command line (a path
// or a file:// URL, as the desktop's "open with" passes it) opens in the left
// pane. Lives on the interface thread for the whole process.
class QuillornApp : public QObject {
    Q_OBJECT
public:
    static constexpr const char *releasePreviewVariable = "QUILLORN_RELEASE_PREVIEW_LEFT";

    // arguments: the command line without the program name, as the system's bytes.
    explicit QuillornApp(const std::vector<std::string> &arguments, Preferences *preferences = nullptr);
    ~QuillornApp() override;

    // True when QUILLORN_RELEASE_PREVIEW_LEFT is in the environment, even empty.
    static bool releasePreview();
    // The folder to open first, if the command line names one.
    static std::optional<std::filesystem::path> folderArgument(const std::vector<std::string> &arguments);

    CommanderView &window() const { return *m_window; }
    Updater &updater() const { return *m_updater; }
    ApplicationMenu &menu() const { return *m_menu; }
    SettingsWindow &showSettings();

private:
    Preferences &m_preferences;
    std::unique_ptr<Updater> m_updater;
    std::unique_ptr<CommanderView> m_window;
    ApplicationMenu *m_menu = nullptr;
    QPointer<SettingsWindow> m_settings;
};

} // namespace quillorn
