#pragma once

#include <QString>
#include <filesystem>
#include <optional>
#include <vector>

namespace quillorn {

// An application the desktop knows from its .desktop file: the file's id
// ("org.gnome.TextEditor.desktop"), the name menus show it by and its icon (a
// theme icon's name or an image's path; empty: none).
struct DesktopApplication {
    QString id;
    QString name;
    QString icon = {};
    friend bool operator==(const DesktopApplication &, const DesktopApplication &) = default;
};

// The MIME type of an item: "inode/directory" for a folder, else by its name
// and, where the name leaves it open, by its first bytes. The name's bytes are
// used as they are, so an item whose name is not UTF-8 is read all the same.
QString mimeTypeOf(const std::filesystem::path &item);

// The applications registered for a MIME type, the default first, by the
// freedesktop.org rules for .desktop files and mimeapps.list: the lists of
// $XDG_CONFIG_HOME, $XDG_CONFIG_DIRS and the applications/ folders of
// $XDG_DATA_HOME and $XDG_DATA_DIRS, a desktop's own list ($desktop-mimeapps.list
// for $XDG_CURRENT_DESKTOP) before the shared one, their Default Applications,
// Added Associations and Removed Associations, and the applications of the
// types the type inherits from (text/plain for C source) after its own.
// The desktop reads these folders once per process and follows their changes.
std::vector<DesktopApplication> applicationsFor(const QString &mimeType);

// Every application the desktop shows in its menus, by name.
std::vector<DesktopApplication> allApplications();

// Starts the application with the items, as their bytes or as file:// URLs,
// whichever its Exec line asks for (once per item when it takes only one).
// Returns the reason when it cannot start; none once it has started.
std::optional<QString> launchApplication(const QString &applicationId,
                                         const std::vector<std::filesystem::path> &items);

} // namespace quillorn
