#include "app/quitguard.h"

#include "app/commanderappdelegate.h"
#include "platform/desktop/modaldialogs.h"

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
        m_alert = showAlert(m_window, request);
        m_alert->setObjectName(QStringLiteral("quitAlert"));
    });
    if (reply == CommanderAppDelegate::TerminateReply::terminateNow)
        return false;
    event->ignore();
    return true;
}

} // namespace quillorn
