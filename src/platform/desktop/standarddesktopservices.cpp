#include "platform/desktop/standarddesktopservices.h"

#include "platform/desktop/defaultapplication.h"
#include "platform/desktop/fileclipboard.h"
#include "platform/desktop/modaldialogs.h"
#include "platform/desktop/quicklook.h"

#include "platform/core/displaytext.h"

#include <QApplication>
#include <QCoreApplication>
#include <QMessageBox>
#include <QPointer>
#include <QWidget>

namespace quillorn {

namespace {

// One alert names every file nothing could open, however many were asked for at once.
void reportUnopened(QWidget *parent, const std::filesystem::path &file)
{
    static QPointer<QMessageBox> shown;
    const QString line = QStringLiteral("No application could open \u2018%1\u2019.").arg(displayText(file));
    if (shown && shown->isVisible()) {
        shown->setInformativeText(shown->informativeText() + QLatin1Char('\n') + line);
        return;
    }
    shown = showAlert(parent, {QStringLiteral("Cannot open the file"), line, {}});
}

// An alert asked for while one of the window's sheets is up goes over the
// sheet, which gets the keyboard back when it closes. Over the window, the
// toolkit (Qt 6.4 on X11) hands the keyboard the sheet loses to the alert on
// to the window instead, which the sheet blocks: no key reaches anything.
QWidget *alertParent(QWidget *window)
{
    QWidget *modal = QApplication::activeModalWidget();
    // Not isAncestorOf(), which stops at the sheet: a window of its own.
    for (QWidget *owner = modal ? modal->parentWidget() : nullptr; owner; owner = owner->parentWidget())
        if (owner == window)
            return modal;
    return window;
}

} // namespace

DesktopServices standardDesktopServices(QWidget *window)
{
    // The services outlive nothing they are given: a closed window just means
    // the dialogs have no parent.
    QPointer<QWidget> parent(window);
    DesktopServices desktop;
    desktop.openFile = [parent](const std::filesystem::path &file) {
        openWithDefaultApplication(file, [parent, file](bool opened) {
            if (!opened)
                reportUnopened(parent.data(), file);
        });
    };
    desktop.writeClipboard = [](const std::vector<std::filesystem::path> &items) {
        FileClipboard::write(items);
    };
    desktop.readClipboard = &FileClipboard::read;
    desktop.cutToClipboard = [](const std::vector<std::filesystem::path> &items) {
        FileClipboard::write(items, true);
    };
    desktop.clipboardIsCut = &FileClipboard::readIsCut;
    desktop.preview = [parent](const std::filesystem::path &item, QuickLook::Failed failed) {
        QuickLook::preview(item, std::move(failed), parent.data());
    };
    desktop.alert = [parent](const AlertRequest &alert) {
        return runAlert(alertParent(parent.data()), alert);
    };
    desktop.prompt = [parent](const QString &title, const QString &value) {
        return askForText(parent.data(), title, value);
    };
    desktop.requestQuit = [] { QCoreApplication::quit(); };
    return desktop;
}

} // namespace quillorn
