#include "app/applicationmenu.h"

#include "platform/desktop/updater.h"
#include "quillorn/version.h"

#include <QApplication>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>

namespace quillorn {

ApplicationMenu::ApplicationMenu(QMainWindow &window, Updater &updater, std::function<void()> showSettings)
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
    application->addSeparator();
    QAction *settings = application->addAction(QStringLiteral("Settings…"));
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    connect(settings, &QAction::triggered, this, std::move(showSettings));
    application->addSeparator();
    QAction *quit = application->addAction(QStringLiteral("Quit Quillorn"));
    // Spelled out: the standard keys differ between platform themes.
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setMenuRole(QAction::QuitRole);
    // Asking the application, not the window: QCoreApplication::quit first asks
    // every window to close, and the main window's quit guard may refuse.
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit, Qt::QueuedConnection);

    QMenu *windowMenu = bar->addMenu(QStringLiteral("&Window"));
    QAction *close = windowMenu->addAction(QStringLiteral("Close Window"));
    close->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_W));
    connect(close, &QAction::triggered, &window, &QWidget::close);
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
