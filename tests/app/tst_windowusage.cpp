#include "windowfixture.h"

#include "app/detail/paneheaderbar.h"
#include "app/detail/panetabstrip.h"
#include "model/commanderthemecolours.h"
#include "operations/appdiagnostics.h"
#include "platform/desktop/standarddesktopservices.h"
#include "services/transferqueue.h"
#include "tools/queueview.h"

#include <QComboBox>
#include <QMenu>
#include <QMessageBox>
#include <QStandardPaths>
#include <QTimer>

using namespace quillorn;
using namespace quillorn::test;

class WindowUsageTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_f.setUp(); }
    void cleanup() { m_f.tearDown(); }

    void tabButtonsStayOnScreenAfterEveryTabChange_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<int>("tabs");
        QTest::newRow("Ctrl+T") << "Ctrl+T" << 2;
        QTest::newRow("Ctrl+T, Ctrl+T, Ctrl+W") << "Ctrl+T Ctrl+T Ctrl+W" << 2;
        QTest::newRow("Backspace") << "Backspace" << 1;
        QTest::newRow("Return on a folder") << "Return" << 1;
        QTest::newRow("path field") << "path" << 1;
        QTest::newRow("favourite") << "favourite" << 1;
    }

    void tabButtonsStayOnScreenAfterEveryTabChange()
    {
        QFETCH(QString, steps);
        QFETCH(int, tabs);
        PaneModel &left = m_f.left();
        left.setCursor(*m_f.tree / "Left/alpha");
        for (const QString &step : steps.split(' ')) {
            const QKeyCombination key = QKeySequence(step)[0];
            if (step == "path")
                typeInto(m_f.view->leftPane()->findChild<QLineEdit *>("pathField"),
                         QString::fromStdString((*m_f.tree / "Right").string()));
            else if (step == "favourite") {
                left.navigate(*m_f.tree / "Right");
                left.toggleFavourite();
                left.navigate(*m_f.tree / "Left");
                WindowFixture::waitListed(left);
                auto *menu = m_f.view->leftPane()->headerBar()->findChild<QMenu *>("favouritesMenu");
                Q_EMIT menu->aboutToShow();
                menu->actions().last()->trigger();
            } else
                QTest::keyClick(QApplication::focusWidget(), key.key(), key.keyboardModifiers());
            WindowFixture::waitListed(left);
        }
        QCOMPARE(int(left.tabs().size()), tabs);
        detail::PaneTabStrip *strip = m_f.view->leftPane()->tabStrip();
        const QList<QToolButton *> buttons = strip->tabButtons();
        QCOMPARE(buttons.size(), tabs);
        const QColor selection = colours(m_f.view->theme()).selection;
        for (int i = 0; i < buttons.size(); ++i) {
            QToolButton *button = buttons[i];
            QTRY_VERIFY2(button->isVisible(), qPrintable(button->text()));
            QVERIFY2(button->visibleRegion().boundingRect().height() >= button->sizeHint().height() - 1,
                     qPrintable(button->text()));
            const QImage image = m_f.shot(button);
            QCOMPARE(image.pixelColor(2, image.height() / 2) == selection, i == left.tabIndex());
        }
    }

    void returnInAPaneFieldActivatesThePaneAndGoesNoFurther_data()
    {
        QTest::addColumn<QString>("fieldName");
        QTest::addColumn<bool>("leftField");
        QTest::newRow("left filter") << "filterField" << true;
        QTest::newRow("right filter") << "filterField" << false;
        QTest::newRow("left path") << "pathField" << true;
        QTest::newRow("right path") << "pathField" << false;
    }

    void returnInAPaneFieldActivatesThePaneAndGoesNoFurther()
    {
        QFETCH(QString, fieldName);
        QFETCH(bool, leftField);
        CommanderModel &model = m_f.view->model();
        model.setActiveLeft(!leftField);
        PaneModel &other = leftField ? model.right() : model.left();
        other.setCursor(other.visible().front().url());
        const fs::path otherFolder = other.directory();
        FilePane *pane = leftField ? m_f.view->leftPane() : m_f.view->rightPane();
        const fs::path folder = pane->pane().directory();
        pane->pane().setCursor(pane->pane().visible().front().url()); // alpha or Archive: "a" keeps it
        QLineEdit *edit = pane->findChild<QLineEdit *>(fieldName);
        const QString typed =
            fieldName == "pathField" ? QString::fromStdString((*m_f.tree / "Left/alpha").string()) : "a";
        typeInto(edit, typed);

        QCOMPARE(model.activeLeft(), leftField);
        QVERIFY(!edit->hasFocus());
        QVERIFY(!m_f.recorder.keys.contains(Qt::Key_Return));
        QCOMPARE(other.directory(), otherFolder);
        QCOMPARE(m_f.calls, QStringList());
        if (fieldName == "pathField")
            QCOMPARE(pane->pane().directory(), *m_f.tree / "Left/alpha");
        else
            QCOMPARE(std::pair(pane->pane().directory(), pane->pane().filter()), std::pair(folder, typed));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(model.activeLeft(), !leftField);
    }

    void returnInASheetFieldStaysWithTheSheet()
    {
        CommanderModel &model = m_f.view->model();
        PaneModel &left = m_f.left();
        const fs::path folder = *m_f.tree / "Left/alpha";
        const std::vector<ToolSheet> sheets{
            ToolSheet::Transfer{{*m_f.tree / "Left/b.txt"}, *m_f.tree / "Right", false},
            ToolSheet::Search{left.directory()},
            ToolSheet::Compare{left.directory(), model.right().directory()},
            ToolSheet::Editor{*m_f.tree / "Left/b.txt"},
            ToolSheet::Info{*m_f.tree / "Left/b.txt"},
            ToolSheet::Connect{},
        };
        for (const ToolSheet &sheet : sheets) {
            model.setTool(sheet);
            QDialog *dialog = m_f.view->toolHost()->sheet();
            if (!dialog)
                continue; // a kind without a sheet yet
            for (QLineEdit *edit : dialog->findChildren<QLineEdit *>()) {
                if (!edit->isVisible() || edit->isReadOnly() || !edit->isEnabled())
                    continue;
                left.setCursor(folder);
                edit->setFocus();
                QTest::keyClick(edit, Qt::Key_Return);
                QCOMPARE(left.directory(), *m_f.tree / "Left");
                QCOMPARE(m_f.calls, QStringList());
                if (!m_f.view->toolHost()->sheet())
                    break; // Return was the sheet's default action
            }
            model.setTool(std::nullopt);
        }
    }

    void returnAddsToTheQueueAfterThePolicyPickerHadTheFocus()
    {
        m_f.tree->file("Right/b.txt", "already here");
        m_f.left().setCursor(*m_f.tree / "Left/b.txt");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_F5);
        QDialog *sheet = m_f.view->toolHost()->sheet();
        QVERIFY(sheet);
        QTRY_COMPARE(QApplication::activeModalWidget(), sheet);
        QTRY_VERIFY(sheet->isAncestorOf(QApplication::focusWidget()));
        auto *picker = sheet->findChild<QComboBox *>("policyPicker");
        for (Qt::Key key : {Qt::Key_Tab, Qt::Key_Down, Qt::Key_Down}) // Stop, Skip, Keep both
            QTest::keyClick(QApplication::focusWidget(), key);
        QCOMPARE(QApplication::focusWidget(), picker);
        QCOMPARE(picker->currentText(), "Keep both");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);

        TransferQueue &queue = m_f.view->model().queue();
        QCOMPARE(queue.items().size(), std::size_t(1));
        QVERIFY(!m_f.view->toolHost()->sheet());
        QTRY_COMPARE(queue.items().front().stateText(), "Complete");
        QCOMPARE(int(std::distance(fs::directory_iterator(*m_f.tree / "Right"), fs::directory_iterator())),
                 4);
    }

    // In every theme: the star and drive buttons under the pointer after their menu
    // closed keep the theme's colours, and a button that cannot act fades.
    void buttonsKeepTheThemeAfterTheirMenuClosesAndFadeWhenDisabled()
    {
        auto *closeTab = m_f.view->leftPane()->findChild<QToolButton *>("closeTabButton");
        QToolButton *close = m_f.view->toolBar()->button("Close");
        for (CommanderTheme theme : allCommanderThemes) {
            m_f.view->applyTheme(theme);
            for (const char *name : {"favouritesButton", "locationsButton"}) {
                auto *button = m_f.view->leftPane()->findChild<QToolButton *>(name);
                QTest::mouseMove(button);
                QTimer::singleShot(50, button->menu(), &QMenu::close);
                QTest::mouseClick(button, Qt::LeftButton);
                QTRY_VERIFY(!button->menu()->isVisible());
                button->setAttribute(Qt::WA_UnderMouse, true); // the offscreen platform does not track it
                button->update();
                const QColor corner = m_f.shot(button).pixelColor(2, 2);
                QVERIFY2(contrastRatio(channels(corner), colours(theme).pane) < 2.0,
                         qPrintable(rawValue(theme) + " " + name + " " + corner.name()));
            }
            for (QToolButton *button : {closeTab, close}) {
                QVERIFY(!button->isEnabled());
                const double disabled = strongestInk(button);
                m_f.left().newTab();
                QVERIFY(button->isEnabled());
                const double enabled = strongestInk(button);
                m_f.left().closeTab();
                QVERIFY2(enabled >= 3.0 && disabled < enabled * 0.6,
                         qPrintable(rawValue(theme) + " " + button->objectName()));
            }
        }
    }

    void showLogAndOpenWithNothingToOpenThemSayWhere()
    {
        const TestTree bin;
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", QByteArray::fromStdString(bin.root().string())); // no xdg-open
        m_f.view->model().queue().enqueue("Copy 1 → Right", [](OperationControl &) {});
        auto *showLog = m_f.view->queueView()->findChild<QPushButton *>("showLogButton");
        QTRY_VERIFY(showLog->isVisible());
        QTest::mouseClick(showLog, Qt::LeftButton);
        QMessageBox *alert = nullptr;
        QTRY_VERIFY((alert = m_f.view->findChild<QMessageBox *>()) && alert->isVisible());
        QCOMPARE(alert->text(), "Cannot show the log");
        QVERIFY2(alert->informativeText().contains(displayText(AppDiagnostics::shared().fileURL())),
                 qPrintable(alert->informativeText()));
        alert->close();
        QTRY_VERIFY(!m_f.view->findChild<QMessageBox *>());

        const DesktopServices real = standardDesktopServices(m_f.view.get());
        real.openFile(*m_f.tree / "Left/b.txt");
        real.openFile(*m_f.tree / "Left/c.txt");
        QTRY_VERIFY((alert = m_f.view->findChild<QMessageBox *>()) && alert->isVisible());
        QCOMPARE(m_f.view->findChildren<QMessageBox *>().size(), 1);
        QCOMPARE(alert->text(), "Cannot open the file");
        QCOMPARE(alert->informativeText().count("No application could open"), 2);
        alert->close();
        qputenv("PATH", path);
    }

    void everythingReadsAtTheMinimumWindowSize()
    {
        m_f.view->model().setActiveLeft(false);
        m_f.view->model().queue().enqueue("Copy 1 → Right", [](OperationControl &) {});
        m_f.view->model().queue().enqueue("Copy 2 → Right", [](OperationControl &) {});
        PaneModel &right = m_f.view->model().right();
        right.navigate(*m_f.tree / "Right/a folder that is not there");
        WindowFixture::waitListed(right);
        m_f.view->resize(m_f.view->minimumSize());
        QTRY_COMPARE(m_f.view->size(), QSize(900, 480));
        QTest::qWait(50);
        for (auto *button : m_f.view->toolBar()->findChildren<QToolButton *>()) {
            if (button->toolButtonStyle() == Qt::ToolButtonIconOnly) {
                QVERIFY(button->toolTip().startsWith(button->text())); // and its key
                continue;
            }
            const int text = button->fontMetrics().horizontalAdvance(button->text());
            QVERIFY2(button->width() >= text + button->iconSize().width(), qPrintable(button->text()));
        }
        QLabel *label = m_f.view->toolBar()->activePaneLabel();
        QCOMPARE(label->text(), "RIGHT PANE ACTIVE");
        QVERIFY(label->width() >= label->fontMetrics().horizontalAdvance(label->text()));
        QWidget *viewport = m_f.view->rightPane()->listView()->viewport();
        for (const char *name : {"errorMessage", "retryButton"}) {
            auto *part = m_f.view->rightPane()->findChild<QWidget *>(name);
            QVERIFY(part->isVisible());
            const QRect shown(part->mapTo(viewport, QPoint(0, 0)), part->size());
            QVERIFY2(viewport->rect().contains(shown), name);
        }
        auto *message = m_f.view->rightPane()->findChild<QLabel *>("errorMessage");
        QVERIFY(message->height() >= message->heightForWidth(message->width()));
    }

    void settingsAreKeptInQuillornConf()
    {
        QCOMPARE(Preferences::standard().fileName(),
                 QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
                     "/Quillorn/Quillorn.conf");
    }

private:
    static ThemeColour channels(const QColor &colour)
    {
        return {std::uint8_t(colour.red()), std::uint8_t(colour.green()), std::uint8_t(colour.blue())};
    }

    // The contrast of the button's most prominent pixel against its surface.
    double strongestInk(QWidget *button) const
    {
        const QImage image = m_f.shot(button);
        const QRect inner = image.rect().adjusted(3, 3, -3, -3);
        const ThemeColour surface = channels(image.pixelColor(inner.center().x(), inner.top()));
        double strongest = 1;
        for (int y = inner.top(); y <= inner.bottom(); ++y)
            for (int x = inner.left(); x <= inner.right(); ++x)
                strongest = std::max(strongest, contrastRatio(channels(image.pixelColor(x, y)), surface));
        return strongest;
    }

    static void typeInto(QLineEdit *edit, const QString &text)
    {
        QTest::mouseClick(edit, Qt::LeftButton);
        edit->selectAll();
        QTest::keyClicks(edit, text);
        QTest::keyClick(edit, Qt::Key_Return);
    }

    WindowFixture m_f;
};

QTEST_MAIN(WindowUsageTest)
#include "tst_windowusage.moc"
