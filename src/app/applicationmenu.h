#pragma once

#include <QMessageBox>
#include <QObject>
#include <QPointer>
#include <functional>

class QAction;
class QMainWindow;

namespace quillorn {

class CommandTable;
class Updater;

// The main window's menu bar: the application menu ("About Quillorn", "Check
// for Updates…" right after it, then the window's commands that name it:
// "Settings…", "Quit Quillorn") and the window menu ("Close Window"), the
// commands a desktop supplies elsewhere. Quitting asks the application to quit,
// which passes through the quit guard of the window.
class ApplicationMenu : public QObject {
    Q_OBJECT
public:
    // `commands` must outlive the menu.
    ApplicationMenu(QMainWindow &window, Updater &updater, const CommandTable &commands);

    QAction *checkForUpdates() const { return m_checkForUpdates; }
    // The answer of the last check while it is on screen.
    QMessageBox *checkAnswer() const { return m_answer; }

private:
    void showAbout();
    void showCheckAnswer(const QString &message);

    QMainWindow &m_window;
    Updater &m_updater;
    QAction *m_checkForUpdates = nullptr;
    QPointer<QMessageBox> m_answer;
};

} // namespace quillorn
