#include "platform/desktop/modaldialogs.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillorn {

namespace {

// Gives the keyboard back to the window the dialog came from as the dialog goes,
// also where no window manager would hand it back: otherwise the next key after
// an alert or a prompt reaches nothing.
class KeyboardReturn {
public:
    explicit KeyboardReturn(QWidget *parent) : m_window(parent ? parent->window() : nullptr) {}
    ~KeyboardReturn()
    {
        if (m_window)
            m_window->activateWindow();
    }
    KeyboardReturn(const KeyboardReturn &) = delete;
    KeyboardReturn &operator=(const KeyboardReturn &) = delete;

private:
    QPointer<QWidget> m_window;
};

} // namespace

int runAlert(QWidget *parent, const AlertRequest &alert)
{
    const KeyboardReturn keyboardReturn(parent);
    QMessageBox box(parent);
    box.setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    box.setIcon(QMessageBox::NoIcon);
    box.setText(alert.message);
    box.setInformativeText(alert.informativeText);
    if (alert.buttons.isEmpty()) {
        box.setStandardButtons(QMessageBox::Ok);
        box.setDefaultButton(QMessageBox::Ok);
        return box.exec() == QMessageBox::Ok ? 0 : -1;
    }
    QList<QAbstractButton *> buttons;
    for (const QString &label : alert.buttons) {
        // Only the first button accepts; the others are escapes, as on the Mac.
        QPushButton *button =
            box.addButton(label, buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole);
        buttons << button;
    }
    box.setDefaultButton(static_cast<QPushButton *>(buttons.front()));
    box.setEscapeButton(buttons.size() > 1 ? buttons.back() : buttons.front());
    box.exec();
    return static_cast<int>(buttons.indexOf(box.clickedButton()));
}

std::optional<QString> askForText(QWidget *parent, const QString &title, const QString &value)
{
    const KeyboardReturn keyboardReturn(parent);
    QDialog dialog(parent);
    dialog.setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    dialog.setWindowTitle(title);
    auto *layout = new QVBoxLayout(&dialog);
    auto *message = new QLabel(title, &dialog);
    QFont bold = message->font();
    bold.setBold(true);
    message->setFont(bold);
    layout->addWidget(message);
    auto *field = new QLineEdit(value, &dialog);
    field->setObjectName(QStringLiteral("promptField"));
    field->setFixedSize(360, 24);
    field->selectAll();
    layout->addWidget(field);
    auto *buttons = new QDialogButtonBox(&dialog);
    buttons->addButton(QStringLiteral("OK"), QDialogButtonBox::AcceptRole)->setDefault(true);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);
    field->setFocus();
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return field->text();
}

} // namespace quillorn
