#include "app/detail/paneheaderbar.h"

#include "app/detail/glyphs.h"
#include "app/detail/panelayout.h"
#include "app/detail/panetabstrip.h"
#include "model/panemodel.h"
#include "platform/core/displaytext.h"
#include "platform/core/mountwatch.h"
#include "platform/desktop/bytecount.h"
#include "platform/desktop/removabledrives.h"

#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QToolButton>

#include <algorithm>

namespace quillorn::detail {

namespace {

QToolButton *menuButton(QWidget *parent, const QString &name, const QString &help, QMenu *menu)
{
    auto *button = new QToolButton(parent);
    button->setObjectName(name);
    button->setToolTip(help);
    button->setAccessibleName(help);
    button->setAutoRaise(true);
    button->setPopupMode(QToolButton::InstantPopup);
    button->setMenu(menu);
    return button;
}

} // namespace

PaneHeaderBar::PaneHeaderBar(PaneModel &pane, QWidget *parent)
    : QWidget(parent), m_pane(pane), m_colours(colours(CommanderThemeKey::defaultValue)),
      m_volumes([] { return mountedVolumes(); })
{
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(6);

    m_folderIcon = new QLabel(this);
    m_folderIcon->setObjectName(QStringLiteral("folderIcon"));
    row->addWidget(m_folderIcon);
    m_folderName = new QLabel(this);
    m_folderName->setObjectName(QStringLiteral("directoryLabel"));
    QFont headline = font();
    headline.setPixelSize(13);
    headline.setBold(true);
    m_folderName->setFont(headline);
    m_folderName->setTextFormat(Qt::PlainText);
    m_folderName->setMinimumWidth(40);
    row->addWidget(m_folderName, 1);

    m_favouritesMenu = new QMenu(this);
    m_favouritesMenu->setObjectName(QStringLiteral("favouritesMenu"));
    connect(m_favouritesMenu, &QMenu::aboutToShow, this, &PaneHeaderBar::buildFavouritesMenu);
    m_favourites = menuButton(this, QStringLiteral("favouritesButton"), tr("Favourites"), m_favouritesMenu);
    row->addWidget(m_favourites);

    m_locationsMenu = new QMenu(this);
    m_locationsMenu->setObjectName(QStringLiteral("locationsMenu"));
    connect(m_locationsMenu, &QMenu::aboutToShow, this, &PaneHeaderBar::buildLocationsMenu);
    m_locations = menuButton(this, QStringLiteral("locationsButton"), tr("Locations"), m_locationsMenu);
    row->addWidget(m_locations);
    m_mounts = new MountWatch(this);
    connect(m_mounts, &MountWatch::changed, this, &PaneHeaderBar::rebuildOpenLocationsMenu);

    m_hidden = new QToolButton(this);
    m_hidden->setObjectName(QStringLiteral("hiddenToggle"));
    m_hidden->setToolTip(tr("Show hidden files"));
    m_hidden->setAccessibleName(m_hidden->toolTip());
    m_hidden->setCheckable(true);
    m_hidden->setAutoRaise(true);
    m_hidden->setChecked(m_pane.showHidden());
    connect(m_hidden, &QToolButton::toggled, &m_pane, &PaneModel::setShowHidden);
    connect(&m_pane, &PaneModel::showHiddenChanged, m_hidden,
            [this] { m_hidden->setChecked(m_pane.showHidden()); });
    row->addWidget(m_hidden);

    connect(&m_pane, &PaneModel::directoryChanged, this, &PaneHeaderBar::updateFolder);
    updateFolder();
    updateIcons();
}

void PaneHeaderBar::setColours(const CommanderThemeColours &colours)
{
    m_colours = colours;
    updateIcons();
}

void PaneHeaderBar::setActive(bool active)
{
    m_active = active;
    updateIcons();
}

void PaneHeaderBar::setVolumeSource(VolumeSource source)
{
    m_volumes = std::move(source);
}

void PaneHeaderBar::setDrives(RemovableDrives *drives)
{
    if (m_drives)
        disconnect(m_drives, nullptr, this, nullptr);
    m_drives = drives;
    if (m_drives)
        connect(m_drives, &RemovableDrives::changed, this, &PaneHeaderBar::rebuildOpenLocationsMenu);
}

void PaneHeaderBar::report(const QString &message) const
{
    if (m_report)
        m_report(message);
}

void PaneHeaderBar::updateFolder()
{
    m_folderName->setText(folderLabel(m_pane.directory()));
    m_folderName->setToolTip(displayText(m_pane.directory()));
}

void PaneHeaderBar::updateIcons()
{
    const QColor folder = m_active ? m_colours.accent : secondaryTextColour(m_colours);
    const QColor text = primaryTextColour(m_colours);
    m_folderIcon->setPixmap(glyphIcon(Glyph::folderFill, folder).pixmap(QSize(16, 16), devicePixelRatioF()));
    m_folderIcon->setProperty("accented", m_active);
    m_favourites->setIcon(glyphIcon(Glyph::star, text));
    m_locations->setIcon(glyphIcon(Glyph::externalDrive, text));
    m_hidden->setIcon(glyphIcon(Glyph::eye, text));
}

void PaneHeaderBar::popUpFavourites()
{
    m_favouritesMenu->popup(m_favourites->mapToGlobal(QPoint(0, m_favourites->height())));
}

void PaneHeaderBar::popUpLocations()
{
    m_locationsMenu->popup(m_locations->mapToGlobal(QPoint(0, m_locations->height())));
}

void PaneHeaderBar::buildFavouritesMenu()
{
    m_favouritesMenu->clear();
    const auto &favourites = m_pane.favourites();
    const bool isFavourite =
        std::find(favourites.begin(), favourites.end(), m_pane.directory()) != favourites.end();
    m_favouritesMenu->addAction(isFavourite ? tr("Remove current favourite") : tr("Favourite this folder"),
                                &m_pane, &PaneModel::toggleFavourite);
    for (const auto &folder : favourites) {
        QAction *action = m_favouritesMenu->addAction(displayText(folder));
        connect(action, &QAction::triggered, &m_pane, [this, folder] { m_pane.navigate(folder); });
    }
}

void PaneHeaderBar::buildLocationsMenu()
{
    m_locationsMenu->clear();
    const std::filesystem::path home = pathFromText(QDir::homePath());
    m_locationsMenu->addAction(tr("Home"), &m_pane, [this, home] { m_pane.navigate(home); });
    m_locationsMenu->addAction(tr("Root"), &m_pane, [this] { m_pane.navigate("/"); });
    if (m_openTrash)
        m_locationsMenu
            ->addAction(tr("Trash"), this,
                        [this] {
                            // The trash folders of real volumes; a share's would be
                            // asked of its server.
                            std::vector<std::filesystem::path> volumes;
                            for (const MountedVolume &volume :
                                 m_volumes ? m_volumes() : VolumeSource::result_type{})
                                if (volume.label.empty())
                                    volumes.push_back(volume.path);
                            m_openTrash(std::move(volumes));
                        })
            ->setObjectName(QStringLiteral("trashEntry"));
    std::vector<MountedVolume> volumes = m_volumes ? m_volumes() : std::vector<MountedVolume>{};
    const std::vector<RemovableFilesystem> drives =
        m_drives ? m_drives->filesystems() : std::vector<RemovableFilesystem>{};
    // Where UDisks2 says a drive is mounted is a volume, even before the mount
    // table is read again.
    for (const RemovableFilesystem &drive : drives)
        for (const auto &point : drive.mountPoints)
            if (std::none_of(volumes.begin(), volumes.end(), [&](const auto &v) { return v.path == point; }))
                volumes.push_back({point, {}});
    std::sort(volumes.begin(), volumes.end(), [](const auto &a, const auto &b) { return a.path < b.path; });
    for (const MountedVolume &volume : volumes) {
        const QString label = volume.label.empty() ? folderLabel(volume.path) : displayText(volume.label);
        QAction *action = m_locationsMenu->addAction(label);
        action->setToolTip(displayText(volume.path));
        connect(action, &QAction::triggered, &m_pane, [this, path = volume.path] { m_pane.navigate(path); });
    }
    addDriveActions(drives);
}

void PaneHeaderBar::addDriveActions(const std::vector<RemovableFilesystem> &drives)
{
    for (const RemovableFilesystem &drive : drives) {
        if (!drive.mountPoints.empty())
            continue;
        QAction *action = m_locationsMenu->addAction(
            tr("%1 (%2, not mounted)").arg(drive.label, formattedByteCount(drive.size)));
        connect(action, &QAction::triggered, this, [this, object = drive.object, name = drive.label] {
            if (m_drives)
                m_drives->mount(object, this,
                                [this, name](const std::filesystem::path &where, const QString &error) {
                                    if (error.isEmpty())
                                        m_pane.navigate(where);
                                    else
                                        report(tr("Could not mount \u2018%1\u2019. %2").arg(name, error));
                                });
        });
    }
    bool separated = false;
    for (const RemovableFilesystem &drive : drives) {
        if (drive.mountPoints.empty())
            continue;
        if (!separated)
            m_locationsMenu->addSeparator();
        separated = true;
        // Named as its volume item above is.
        const QString name = folderLabel(drive.mountPoints.front());
        const auto outcome = [this, name](const QString &done, const QString &failed) {
            return [this, name, done, failed](const QString &error) {
                report(error.isEmpty() ? done.arg(name) : failed.arg(name, error));
            };
        };
        QAction *unmount = m_locationsMenu->addAction(tr("Unmount \u2018%1\u2019").arg(name));
        connect(unmount, &QAction::triggered, this, [this, object = drive.object, outcome] {
            if (m_drives)
                m_drives->unmount(
                    object, this,
                    outcome(tr("Unmounted \u2018%1\u2019."), tr("Could not unmount \u2018%1\u2019. %2")));
        });
        if (!drive.canEject)
            continue;
        QAction *eject = m_locationsMenu->addAction(tr("Eject \u2018%1\u2019").arg(name));
        connect(eject, &QAction::triggered, this, [this, object = drive.object, outcome] {
            if (m_drives)
                m_drives->eject(
                    object, this,
                    outcome(tr("Ejected \u2018%1\u2019."), tr("Could not eject \u2018%1\u2019. %2")));
        });
    }
}

// An open menu follows what is mounted; the item under the keyboard stays chosen.
void PaneHeaderBar::rebuildOpenLocationsMenu()
{
    if (!m_locationsMenu->isVisible())
        return;
    const QString active =
        m_locationsMenu->activeAction() ? m_locationsMenu->activeAction()->text() : QString();
    buildLocationsMenu();
    for (QAction *action : m_locationsMenu->actions())
        if (!active.isEmpty() && action->text() == active)
            m_locationsMenu->setActiveAction(action);
}

} // namespace quillorn::detail
