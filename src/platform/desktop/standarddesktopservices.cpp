#include "platform/desktop/standarddesktopservices.h"

#include "platform/desktop/defaultapplication.h"
#include "platform/desktop/fileclipboard.h"
#include "platform/desktop/modaldialogs.h"
#include "platform/desktop/quicklook.h"

#include <QCoreApplication>
#include <QPointer>
#include <QWidget>

namespace quillorn {

DesktopServices standardDesktopServices(QWidget *window)
{
    // The services outlive nothing they are given: a closed window just means
    // the dialogs have no parent.
    QPointer<QWidget> parent(window);
    DesktopServices desktop;
    desktop.openFile = &openWithDefaultApplication;
    desktop.writeClipboard = &FileClipboard::write;
    desktop.readClipboard = &FileClipboard::read;
    desktop.preview = [parent](const std::filesystem::path &item, QuickLook::Failed failed) {
        QuickLook::preview(item, std::move(failed), parent.data());
    };
    desktop.alert = [parent](const AlertRequest &alert) { return runAlert(parent.data(), alert); };
    desktop.prompt = [parent](const QString &title, const QString &value) {
        return askForText(parent.data(), title, value);
    };
    desktop.requestQuit = [] { QCoreApplication::quit(); };
    return desktop;
}

} // namespace quillorn
