#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <filesystem>
#include <memory>
#include <vector>

namespace quillorn {

class ApplicationMenu;
class CommanderView;
class Preferences;
class SettingsWindow;
class Updater;

// The application: builds, in this order, the updater (started only outside
// release previews), the one main window with its menu and quit guard, and,
// on demand, the settings window. The items of the command line open as
// open() does. Lives on the interface thread for the whole process.
class QuillornApp : public QObject {
    Q_OBJECT
public:
    static constexpr const char *releasePreviewVariable = "QUILLORN_RELEASE_PREVIEW_LEFT";

    // targets: what the command line names, see CommandLine.
    explicit QuillornApp(const std::vector<std::filesystem::path> &targets,
                         Preferences *preferences = nullptr);
    ~QuillornApp() override;

    // True when QUILLORN_RELEASE_PREVIEW_LEFT is in the environment, even empty.
    static bool releasePreview();
    // Each folder in a new tab of the left pane, each other item's folder in a
    // new tab with the cursor on the item (items of one folder share a tab and
    // are tagged), the left pane active. The saved tabs stay as they were.
    void open(const std::vector<std::filesystem::path> &targets);
    // The information of the item, over its folder.
    void showInfo(const std::filesystem::path &item);
    // Brings the window to the front, with the desktop's activation token when
    // another program asked for it.
    void present(const QString &activationToken = {});

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
