#include "app/applicationmenu.h"

#include "app/commandtable.h"
#include "platform/desktop/updater.h"
#include "quillorn/version.h"

#include <QApplication>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>

namespace quillorn {

ApplicationMenu::ApplicationMenu(QMainWindow &window, Updater &updater, const CommandTable &commands)
    : QObject(&window), m_window(window), m_updater(updater)
{
    QMenuBar *bar = window.menuBar();
    QMenu *application = bar->addMenu(QStringLiteral("&Quillorn"));
    application->addAction(QStringLiteral("About Quillorn"), this, &ApplicationMenu::showAbout);
    m_checkForUpdates = application->addAction(QStringLiteral("Check for Updates…"));
    m_checkForUpdates->setObjectName(QStringLiteral("checkForUpdates"));
    m_checkForUpdates->setEnabled(updater.canCheckForUpdates());
    connect(m_checkForUpdates, &QAction::triggered, &updater, &Updater::checkForUpdates);
    connect(&updater, &Updater::canCheckForUpdatesChanged, m_checkForUpdates, &QAction::setEnabled);
    connect(&updater, &Updater::checkFinished, this, &ApplicationMenu::showCheckAnswer);

    for (const Command &command : commands.commands()) {
        if (command.menu.isEmpty())
            continue;
        QMenu *menu = nullptr;
        for (QAction *existing : bar->actions())
            if (existing->text() == command.menu)
                menu = existing->menu();
        if (!menu)
            menu = bar->addMenu(command.menu);
        if (menu == application)
            application->addSeparator();
        QAction *action = menu->addAction(command.text);
        action->setObjectName(command.id);
        if (command.menuShortcut && !command.keys.isEmpty())
            action->setShortcut(QKeySequence(command.keys.front()));
        if (command.id == QLatin1String("quit"))
            action->setMenuRole(QAction::QuitRole);
        connect(menu, &QMenu::aboutToShow, action, [action, &command] {
            action->setEnabled(command.isEnabled());
            action->setText(command.shownText());
        });
        connect(action, &QAction::triggered, this, [&command] {
            if (command.isEnabled() && command.invoke)
                command.invoke({});
        });
    }
}

void ApplicationMenu::showAbout()
{
    auto *box = new QMessageBox(QMessageBox::Information, QStringLiteral("About Quillorn"),
                                QStringLiteral("Quillorn v") + QString::fromLatin1(kVersion), QMessageBox::Ok,
                                &m_window);
    box->setInformativeText(QStringLiteral("A keyboard-driven two-pane file manager."));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void ApplicationMenu::showCheckAnswer(const QString &message)
{
    auto *box = new QMessageBox(QMessageBox::Information, QStringLiteral("Check for Updates"), message,
                                QMessageBox::Ok, &m_window);
    box->setObjectName(QStringLiteral("updateAnswer"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::finished, &m_updater, &Updater::checkPresented);
    m_answer = box;
    box->open();
}

} // namespace quillorn
