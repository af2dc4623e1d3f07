#include "platform/desktop/modaldialogs.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

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

// The toolkit wraps an alert's text at a fixed width, which breaks the lines
// of the keyboard help mid-phrase: the text is given the width of its longest
// line, up to most of the screen.
void fitToLongestLine(QMessageBox &box)
{
    auto *label = box.findChild<QLabel *>(QStringLiteral("qt_msgbox_informativelabel"));
    if (!label)
        return;
    const QFontMetrics metrics(label->font());
    int widest = 0;
    for (const QString &line : label->text().split(QLatin1Char('\n')))
        widest = std::max(widest, metrics.horizontalAdvance(line));
    const QScreen *screen =
        box.parentWidget() ? box.parentWidget()->screen() : QGuiApplication::primaryScreen();
    const int limit = screen ? screen->availableGeometry().width() * 4 / 5 : 1000;
    label->setMinimumWidth(std::min(widest + metrics.averageCharWidth(), limit));
}

// The first button accepts; the others are escapes, as on the Mac.
QList<QAbstractButton *> addButtons(QMessageBox &box, const QStringList &labels)
{
    QList<QAbstractButton *> buttons;
    if (labels.isEmpty()) {
        box.setStandardButtons(QMessageBox::Ok);
        box.setDefaultButton(QMessageBox::Ok);
        return {box.button(QMessageBox::Ok)};
    }
    for (const QString &label : labels)
        buttons << box.addButton(label,
                                 buttons.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole);
    box.setDefaultButton(static_cast<QPushButton *>(buttons.front()));
    box.setEscapeButton(buttons.size() > 1 ? buttons.back() : buttons.front());
    return buttons;
}

void describe(QMessageBox &box, const AlertRequest &alert)
{
    box.setWindowModality(box.parentWidget() ? Qt::WindowModal : Qt::ApplicationModal);
    box.setIcon(QMessageBox::NoIcon);
    box.setText(alert.message);
    box.setInformativeText(alert.informativeText);
    if (!alert.detailedText.isEmpty())
        box.setDetailedText(alert.detailedText);
    fitToLongestLine(box);
}

} // namespace

void fitButtons(QMessageBox &box)
{
    // The theme's min-width for buttons becomes each button's minimum width,
    // which layouts then take instead of the width its text needs; a box sizes
    // itself to its layout's minimum, so a short question with a long button
    // ("Discard changes") cut the button's text at both ends. Polished first,
    // so that the style sheet does not set that minimum again afterwards.
    box.ensurePolished();
    for (QAbstractButton *button : box.buttons())
        button->setMinimumWidth(std::max(button->minimumWidth(), button->sizeHint().width()));
}

int runAlert(QWidget *parent, const AlertRequest &alert)
{
    const KeyboardReturn keyboardReturn(parent);
    QMessageBox box(parent);
    describe(box, alert);
    const QList<QAbstractButton *> buttons = addButtons(box, alert.buttons);
    fitButtons(box);
    // The details open with the alert: they are what it was asked for.
    for (QAbstractButton *button : box.buttons())
        if (box.buttonRole(button) == QMessageBox::ActionRole && !buttons.contains(button))
            button->click();
    box.exec();
    return static_cast<int>(buttons.indexOf(box.clickedButton()));
}

QMessageBox *showAlert(QWidget *parent, const AlertRequest &alert)
{
    auto *box = new QMessageBox(parent);
    describe(*box, alert);
    addButtons(*box, alert.buttons);
    fitButtons(*box);
    box->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(box, &QDialog::finished, box,
                     [window = QPointer<QWidget>(parent ? parent->window() : nullptr)] {
                         if (window)
                             window->activateWindow();
                     });
    box->open();
    return box;
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
