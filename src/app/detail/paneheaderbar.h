#pragma once

#include "model/commanderthemecolours.h"
#include "platform/posix/volume.h"

#include <QWidget>

#include <filesystem>
#include <functional>
#include <vector>

class QLabel;
class QMenu;
class QToolButton;

namespace quillorn {
class MountWatch;
class PaneModel;
class RemovableDrives;
struct RemovableFilesystem;
} // namespace quillorn

namespace quillorn::detail {

// The pane's header: folder symbol (accent while the pane is active), folder
// name, the favourites and locations menus and the hidden-files toggle. Both
// menus are built when they open, so they show the state of that moment; the
// locations menu is built again while open whenever something is mounted or
// unmounted. Besides the mounted volumes it offers the removable drives that
// are not mounted (choosing one mounts it and opens it) and unmounts or ejects
// the mounted ones; what the system answers to a refusal goes to the reporter.
class PaneHeaderBar : public QWidget {
    Q_OBJECT
public:
    using VolumeSource = std::function<std::vector<MountedVolume>()>;

    explicit PaneHeaderBar(PaneModel &pane, QWidget *parent = nullptr);

    void setColours(const CommanderThemeColours &colours);
    void setActive(bool active);
    // Where the locations menu learns the mounted volumes (tests pass their own).
    void setVolumeSource(VolumeSource source);
    // The removable drives to offer (nullptr: none); not owned.
    void setDrives(RemovableDrives *drives);
    // Where the outcome of a mount, unmount or eject is told (the status line).
    void setReporter(std::function<void(const QString &)> report) { m_report = std::move(report); }
    // What the menu's "Trash" entry does, given the volumes whose trash folders
    // it shows besides the home trash; without one the entry is left out.
    void setTrashOpener(std::function<void(std::vector<std::filesystem::path> volumes)> opener)
    {
        m_openTrash = std::move(opener);
    }

    QMenu *favouritesMenu() const { return m_favouritesMenu; }
    QMenu *locationsMenu() const { return m_locationsMenu; }
    // Opens a menu under its button, as a click does, without waiting for a choice.
    void popUpFavourites();
    void popUpLocations();

private:
    void buildFavouritesMenu();
    void buildLocationsMenu();
    void rebuildOpenLocationsMenu();
    void addDriveActions(const std::vector<RemovableFilesystem> &drives);
    void report(const QString &message) const;
    void updateFolder();
    void updateIcons();

    PaneModel &m_pane;
    CommanderThemeColours m_colours;
    bool m_active = false;
    VolumeSource m_volumes;
    RemovableDrives *m_drives = nullptr;
    MountWatch *m_mounts = nullptr;
    std::function<void(const QString &)> m_report;
    std::function<void(std::vector<std::filesystem::path>)> m_openTrash;
    QLabel *m_folderIcon = nullptr;
    QLabel *m_folderName = nullptr;
    QToolButton *m_favourites = nullptr;
    QMenu *m_favouritesMenu = nullptr;
    QToolButton *m_locations = nullptr;
    QMenu *m_locationsMenu = nullptr;
    QToolButton *m_hidden = nullptr;
};

} // namespace quillorn::detail
