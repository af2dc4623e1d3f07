#include "model/commandermodel.h"
#include "model/commanderthemecolours.h"
#include "platform/core/preferences.h"
#include "testtree.h"
#include "tools/connectsheet.h"
#include "tools/toolhost.h"
#include "tools/transfersheet.h"

#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QMainWindow>
#include <QPushButton>
#include <QTest>

using namespace quillorn;

// The tool host and the transfer sheet over a real model, real folders and the real transfer engine.
class ToolHostTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_tree.file("Left/a.txt", "from the left");
        m_tree.file("Inbox/a.txt", "already here");
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((m_tree / "data").string()));
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((m_tree / "config").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((m_tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((m_tree / "Inbox").string()));
        CommanderModelOptions options;
        options.panes.preferences = &m_preferences;
        options.queuePollIntervalMs = 10;
        m_model = std::make_unique<CommanderModel>(std::move(options));
        m_window = std::make_unique<QMainWindow>();
        CommanderThemeKey::set(m_window.get(), CommanderTheme::forest);
        m_host = new ToolHost(*m_model, m_window.get());
        m_window->show();
    }

    void sheetsFollowTheToolRequestAndEveryWayOfClosingClearsIt()
    {
        m_model->transfer({m_tree / "Left/a.txt", m_tree / "Inbox/a.txt"}, m_tree / "Inbox", false);
        QPointer<QDialog> first = m_host->sheet();
        QVERIFY(first && first->isVisible() && first->windowModality() == Qt::WindowModal);
        QCOMPARE(first->parentWidget(), m_window.get());
        QCOMPARE(first->palette().color(QPalette::Window), colours(CommanderTheme::forest).window);
        QCOMPARE(first->findChild<QLabel *>("sheetTitle")->text(), QStringLiteral("Copy 2 item(s)"));
        // A new payload replaces the sheet.
        m_model->transfer({m_tree / "Left/a.txt"}, m_tree / "Inbox", true);
        QPointer<QDialog> second = m_host->sheet();
        QCOMPARE(second->findChild<QLabel *>("sheetTitle")->text(), QStringLiteral("Move 1 item(s)"));
        QTRY_VERIFY(!first);
        QVERIFY(m_model->tool()); // closing the first did not clear the second
        m_model->setTool(std::nullopt);
        QTRY_VERIFY(!m_host->sheet() && !second);
        m_model->connect(); // every kind has its sheet
        QVERIFY(m_host->sheet() && m_host->sheet()->findChild<ConnectSheet *>());
        m_model->setTool(std::nullopt);
        QTRY_VERIFY(!m_host->sheet() && !m_model->tool());

        for (const auto &close : std::initializer_list<std::function<void(QDialog *)>>{
                 [](QDialog *sheet) { sheet->findChild<QPushButton *>("cancelButton")->click(); },
                 [](QDialog *sheet) { QTest::keyClick(sheet, Qt::Key_Escape); },
                 [](QDialog *sheet) { sheet->close(); }}) {
            m_model->transfer({m_tree / "Left/a.txt"}, m_tree / "Inbox", false);
            QDialog *sheet = m_host->sheet();
            auto *picker = sheet->findChild<QComboBox *>("policyPicker");
            QCOMPARE(picker->currentText(), QStringLiteral("Stop")); // whatever the sheet before chose
            picker->setCurrentIndex(2);
            QApplication::setActiveWindow(sheet);
            QTRY_COMPARE(QApplication::activeWindow(), sheet);
            close(sheet);
            QVERIFY(!m_model->tool());
            QTRY_COMPARE(QApplication::activeWindow(), m_window.get());
        }
        QVERIFY(m_model->queue().items().empty());
    }

    void queuedTransfersRunWithTheChosenPolicy()
    {
        m_model->transfer({m_tree / "Left/a.txt"}, m_tree / "Inbox", true);
        QTest::keyClick(m_host->sheet(), Qt::Key_Return); // Stop: the existing name refuses the move
        QVERIFY(!m_model->tool());
        m_model->transfer({m_tree / "Left/a.txt"}, m_tree / "Inbox", false);
        m_host->sheet()->findChild<QComboBox *>("policyPicker")->setCurrentIndex(3); // Replace
        m_host->sheet()->findChild<QPushButton *>("addButton")->click();
        QTRY_VERIFY(!m_model->queue().hasWork());
        QVERIFY(m_model->queue().items().front().stateText().startsWith("Failed: "));
        QCOMPARE(test::TestTree::read(m_tree / "Inbox/a.txt"), std::string("from the left"));
        QCOMPARE(test::TestTree::read(m_tree / "Left/a.txt"), std::string("from the left"));
        QCOMPARE(TransferSheet::queueTitle(3, "/home/me/Photos/", false), QStringLiteral("Copy 3 → Photos"));
        QCOMPARE(TransferSheet::queueTitle(2, "/", true), QStringLiteral("Move 2 → /"));
    }

private:
    test::TestTree m_tree;
    Preferences m_preferences{QString::fromStdString((m_tree / "prefs.ini").string())};
    std::unique_ptr<CommanderModel> m_model;
    std::unique_ptr<QMainWindow> m_window; // goes first: its tool host follows the model
    ToolHost *m_host = nullptr;
};

QTEST_MAIN(ToolHostTest)
#include "tst_toolhost.moc"
