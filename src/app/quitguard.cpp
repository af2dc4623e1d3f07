#include "app/quitguard.h"

#include "app/commanderappdelegate.h"
#include "platform/desktop/modaldialogs.h"

#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QMessageBox>
#include <QWidget>

namespace quillorn {

QuitGuard::QuitGuard(QWidget *window) : QObject(window), m_window(window)
{
    window->installEventFilter(this);
    // Quitting closes the open sheet first: the guard must answer before that,
    // or a sheet with unsaved edits would be asked instead of the user told.
    QCoreApplication::instance()->installEventFilter(this);
}

bool QuitGuard::eventFilter(QObject *watched, QEvent *event)
{
    const bool quit = watched == QCoreApplication::instance() && event->type() == QEvent::Quit;
    if (!quit && (watched != m_window || event->type() != QEvent::Close))
        return false;
    const auto reply = CommanderAppDelegate::applicationShouldTerminate([this](const AlertRequest &request) {
        if (m_alert)
            m_alert->close();
        m_alert = showAlert(keyboardOwner(), request);
        m_alert->setObjectName(QStringLiteral("quitAlert"));
    });
    if (reply == CommanderAppDelegate::TerminateReply::terminateNow)
        return false;
    event->ignore();
    return true;
}

QWidget *QuitGuard::keyboardOwner() const
{
    // A sheet open over the window holds the keyboard: the alert goes over it,
    // so that it is the one window in front and hands the keyboard back to the
    // sheet when it closes. Over the main window behind, it would leave the
    // sheet in front with the keyboard and be activated itself only by chance.
    QWidget *modal = QApplication::activeModalWidget();
    for (QWidget *widget = modal; widget; widget = widget->parentWidget())
        if (widget == m_window)
            return modal;
    return m_window;
}

} // namespace quillorn
