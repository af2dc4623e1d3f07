#include "app/panecontextmenu.h"

#include "app/commandtable.h"

#include <QMenu>

namespace quillorn {

namespace {

using Owner = std::shared_ptr<const std::vector<Command>>;

QString entryText(const Command &command)
{
    // Application names may hold "&", which a menu takes for a mnemonic.
    QString text = command.menuLabel();
    text.replace(QLatin1Char('&'), QStringLiteral("&&"));
    // Shown in the menu's key column without becoming a shortcut: the keys
    // belong to the window's key handler.
    if (const QString key = command.shownKey(); !key.isEmpty())
        text += QLatin1Char('\t') + key;
    return text;
}

} // namespace

// Commands other parts of the program may not have yet ("multiRename",
// "folderSize") join their menus as soon as the table has them.
const QStringList PaneContextMenu::itemEntries = {
    QStringLiteral("open"),
    QStringLiteral("openWith"),
    QString(),
    QStringLiteral("f3"),
    QStringLiteral("f4"),
    QString(),
    QStringLiteral("f5"),
    QStringLiteral("f6"),
    QString(),
    QStringLiteral("f2"),
    QStringLiteral("multiRename"),
    QStringLiteral("f8"),
    QString(),
    QStringLiteral("extractArchive"),
    QStringLiteral("createArchive"),
    QString(),
    QStringLiteral("copyPath"),
    QStringLiteral("folderSize"),
    QStringLiteral("info"),
};
const QStringList PaneContextMenu::folderEntries = {
    QStringLiteral("f7"),         QStringLiteral("paste"),  QStringLiteral("f9"), QString(),
    QStringLiteral("showHidden"), QStringLiteral("sortBy"),
};

PaneContextMenu::PaneContextMenu(const CommandTable &commands, QWidget *parent)
    : QObject(parent), m_commands(commands), m_parent(parent)
{
}

PaneContextMenu::~PaneContextMenu()
{
    delete m_menu;
}

QMenu *PaneContextMenu::menu() const
{
    return m_menu;
}

void PaneContextMenu::popUp(Kind kind, QPoint at, std::function<void()> whenClosed)
{
    // A new menu each time: its entries and their submenus go with the old one.
    if (m_menu) {
        m_menu->hide();
        m_menu->deleteLater();
    }
    m_menu = new QMenu(m_parent);
    m_menu->setObjectName(kind == Kind::items ? QStringLiteral("itemMenu") : QStringLiteral("folderMenu"));
    std::vector<const Command *> entries;
    for (const QString &id : kind == Kind::items ? itemEntries : folderEntries) {
        if (id.isEmpty())
            entries.push_back(nullptr);
        else if (const Command *command = m_commands.find(id))
            entries.push_back(command);
    }
    fill(m_menu, entries, nullptr);
    // aboutToHide comes before the chosen entry's triggered: queued, the
    // keyboard is back before the command runs.
    connect(m_menu, &QMenu::aboutToHide, this, [this, whenClosed = std::move(whenClosed)] {
        if (whenClosed)
            QMetaObject::invokeMethod(this, whenClosed, Qt::QueuedConnection);
    });
    m_menu->popup(at);
}

// Separators that end up first, last or twice in a row are not drawn (the
// menu collapses them), so a missing command leaves no gap.
void PaneContextMenu::fill(QMenu *menu, const std::vector<const Command *> &entries, const Owner &owner)
{
    for (const Command *command : entries) {
        if (command)
            addEntry(menu, *command, owner);
        else
            menu->addSeparator();
    }
}

void PaneContextMenu::addEntry(QMenu *menu, const Command &command, const Owner &owner)
{
    QAction *action = nullptr;
    if (command.choices) {
        QMenu *submenu = menu->addMenu(entryText(command));
        submenu->setObjectName(command.id + QStringLiteral("Menu"));
        action = submenu->menuAction();
        // Asked for only when it opens: the choices may take a look at the disk.
        connect(submenu, &QMenu::aboutToShow, this, [this, submenu, &command, owner] {
            submenu->clear();
            const auto choices = std::make_shared<const std::vector<Command>>(command.choices());
            std::vector<const Command *> entries;
            for (const Command &choice : *choices)
                entries.push_back(&choice);
            fill(submenu, entries, choices);
        });
    } else {
        action = menu->addAction(entryText(command));
        connect(action, &QAction::triggered, this, [this, &command, owner] { run(command, owner); });
    }
    action->setObjectName(command.id);
    action->setEnabled(command.isEnabled());
    if (command.checked) {
        action->setCheckable(true);
        action->setChecked(command.checked());
    }
}

void PaneContextMenu::run(const Command &command, const Owner &owner)
{
    // `owner` keeps a submenu's commands alive until the command has run.
    QMetaObject::invokeMethod(
        this,
        [&command, owner] {
            if (command.isEnabled() && command.invoke)
                command.invoke({});
        },
        Qt::QueuedConnection);
}

} // namespace quillorn
