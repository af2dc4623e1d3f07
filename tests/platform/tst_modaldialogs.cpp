#include "platform/desktop/modaldialogs.h"

#include <QAbstractButton>
#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QTest>
#include <QTimer>

using namespace quillorn;

namespace {

// Acts on the modal dialog once it is up, from inside its event loop.
void whenModal(std::function<void(QWidget *)> act)
{
    QTimer::singleShot(0, [act = std::move(act)] {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal) {
            whenModal(act);
            return;
        }
        act(modal);
    });
}

QAbstractButton *buttonLabelled(QWidget *dialog, const QString &label)
{
    for (auto *button : dialog->findChildren<QAbstractButton *>())
        if (button->text().remove('&') == label)
            return button;
    return nullptr;
}

} // namespace

class ModalDialogsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void promptReturnsTheTextAsTyped();
    void promptCancelledReturnsNothing();
    void alertAnswersTheIndexOfTheChosenButton_data();
    void alertAnswersTheIndexOfTheChosenButton();
    void alertWithoutButtonsHasOneDefault();
};

void ModalDialogsTest::promptReturnsTheTextAsTyped()
{
    QSize fieldSize;
    QString proposed;
    bool focused = false;
    whenModal([&](QWidget *dialog) {
        auto *field = dialog->findChild<QLineEdit *>(QStringLiteral("promptField"));
        fieldSize = field->size();
        proposed = field->text();
        focused = field->hasFocus() || dialog->focusWidget() == field;
        // Typing replaces the selected proposal; spaces are kept.
        QTest::keyClicks(field, QStringLiteral("  Holiday 2026 "));
        QTest::keyClick(field, Qt::Key_Return);
    });
    const auto answer = askForText(nullptr, QStringLiteral("New folder"), QStringLiteral("New Folder"));
    QCOMPARE(proposed, QStringLiteral("New Folder"));
    QCOMPARE(fieldSize, QSize(360, 24));
    QVERIFY(focused);
    QCOMPARE(answer, std::optional<QString>(QStringLiteral("  Holiday 2026 ")));
}

void ModalDialogsTest::promptCancelledReturnsNothing()
{
    whenModal([](QWidget *dialog) { buttonLabelled(dialog, QStringLiteral("Cancel"))->click(); });
    QCOMPARE(askForText(nullptr, QStringLiteral("Rename"), QStringLiteral("a.txt")), std::nullopt);
    whenModal([](QWidget *dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
    QCOMPARE(askForText(nullptr, QStringLiteral("Rename"), QStringLiteral("a.txt")), std::nullopt);
}

void ModalDialogsTest::alertAnswersTheIndexOfTheChosenButton_data()
{
    QTest::addColumn<QString>("press");
    QTest::addColumn<int>("expected");
    QTest::newRow("Continue") << "Continue" << 0;
    QTest::newRow("Cancel") << "Cancel" << 1;
    QTest::newRow("Escape") << "<Escape>" << 1;
    QTest::newRow("Return takes the default") << "<Return>" << 0;
}

void ModalDialogsTest::alertAnswersTheIndexOfTheChosenButton()
{
    QFETCH(QString, press);
    QFETCH(int, expected);
    QString shownText;
    whenModal([&](QWidget *dialog) {
        auto *box = qobject_cast<QMessageBox *>(dialog);
        shownText = box->text() + '|' + box->informativeText();
        if (press == "<Escape>")
            QTest::keyClick(dialog, Qt::Key_Escape);
        else if (press == "<Return>")
            QTest::keyClick(dialog, Qt::Key_Return);
        else
            buttonLabelled(dialog, press)->click();
    });
    const int answer = runAlert(nullptr, {QStringLiteral("Delete selected items?"),
                                          QStringLiteral("Move 2 items?"),
                                          {QStringLiteral("Continue"), QStringLiteral("Cancel")}});
    QCOMPARE(answer, expected);
    QCOMPARE(shownText, QStringLiteral("Delete selected items?|Move 2 items?"));
}

void ModalDialogsTest::alertWithoutButtonsHasOneDefault()
{
    int buttons = 0;
    whenModal([&](QWidget *dialog) {
        buttons = static_cast<int>(dialog->findChildren<QAbstractButton *>().size());
        QTest::keyClick(dialog, Qt::Key_Return);
    });
    QCOMPARE(runAlert(nullptr, {QStringLiteral("Keyboard help"), QStringLiteral("text"), {}}), 0);
    QCOMPARE(buttons, 1);
}

QTEST_MAIN(ModalDialogsTest)
#include "tst_modaldialogs.moc"
