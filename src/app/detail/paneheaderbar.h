#pragma once

#include "model/commanderthemecolours.h"

#include <QWidget>

#include <filesystem>
#include <functional>
#include <vector>

class QLabel;
class QMenu;
class QToolButton;

namespace quillorn {
class PaneModel;
}

namespace quillorn::detail {

// The pane's header: folder symbol (accent while the pane is active), folder
// name, the favourites and locations menus and the hidden-files toggle. Both
// menus are built when they open, so they show the state of that moment.
class PaneHeaderBar : public QWidget {
    Q_OBJECT
public:
    using VolumeSource = std::function<std::vector<std::filesystem::path>()>;

    explicit PaneHeaderBar(PaneModel &pane, QWidget *parent = nullptr);

    void setColours(const CommanderThemeColours &colours);
    void setActive(bool active);
    // Where the locations menu learns the mounted volumes (tests pass their own).
    void setVolumeSource(VolumeSource source);
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
    void updateFolder();
    void updateIcons();

    PaneModel &m_pane;
    CommanderThemeColours m_colours;
    bool m_active = false;
    VolumeSource m_volumes;
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
