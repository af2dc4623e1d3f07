#include "app/quitguard.h"

#include "app/commanderappdelegate.h"

#include <QCloseEvent>
#include <QMessageBox>
#include <QPushButton>
#include <QWidget>

namespace quillorn {

QuitGuard::QuitGuard(QWidget *window) : QObject(window), m_window(window)
{
    window->installEventFilter(this);
}

bool QuitGuard::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_window || event->type() != QEvent::Close)
        return false;
    const auto reply = CommanderAppDelegate::applicationShouldTerminate([this](const AlertRequest &request) {
        if (m_alert)
            m_alert->close();
        auto *box = new QMessageBox(QMessageBox::Warning, request.message, request.message,
                                    QMessageBox::NoButton, m_window);
        box->setObjectName(QStringLiteral("quitAlert"));
        box->setInformativeText(request.informativeText);
        if (request.buttons.isEmpty())
            box->setStandardButtons(QMessageBox::Ok);
        for (const QString &label : request.buttons)
            box->addButton(label, QMessageBox::AcceptRole);
        box->setAttribute(Qt::WA_DeleteOnClose);
        m_alert = box;
        box->open();
    });
    if (reply == CommanderAppDelegate::TerminateReply::terminateNow)
        return false;
    event->ignore();
    return true;
}

} // namespace quillorn
