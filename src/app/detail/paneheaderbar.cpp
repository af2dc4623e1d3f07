#include "app/detail/paneheaderbar.h"

#include "app/detail/glyphs.h"
#include "app/detail/panelayout.h"
#include "app/detail/panetabstrip.h"
#include "model/panemodel.h"
#include "platform/core/displaytext.h"
#include "platform/posix/volume.h"

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
      m_volumes(mountedVolumes)
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
                        [this] { m_openTrash(m_volumes ? m_volumes() : VolumeSource::result_type{}); })
            ->setObjectName(QStringLiteral("trashEntry"));
    const std::vector<std::filesystem::path> volumes =
        m_volumes ? m_volumes() : std::vector<std::filesystem::path>{};
    for (const auto &volume : volumes) {
        QAction *action = m_locationsMenu->addAction(folderLabel(volume));
        action->setToolTip(displayText(volume));
        connect(action, &QAction::triggered, &m_pane, [this, volume] { m_pane.navigate(volume); });
    }
}

} // namespace quillorn::detail
