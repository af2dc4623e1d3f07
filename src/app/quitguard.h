#pragma once

#include <QMessageBox>
#include <QObject>
#include <QPointer>

class QWidget;

namespace quillorn {

// Puts the quit guard in front of the main window's close and of the
// application's quit. Every way of quitting ends there: closing the window,
// Ctrl+Q, F10 (from the window once the model has let it through, or from the
// editor sheet). A refusal
// shows its alert over the window without waiting for it: the answer does not
// depend on the button, so the interface thread never runs a nested event loop.
class QuitGuard : public QObject {
    Q_OBJECT
public:
    explicit QuitGuard(QWidget *window);

    // The refusal alert on screen, if any.
    QMessageBox *alert() const { return m_alert; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *keyboardOwner() const;

    QWidget *m_window;
    QPointer<QMessageBox> m_alert;
};

} // namespace quillorn
