#include "model/commandermodel.h"
#include "model/commanderthemecolours.h"
#include "operations/appdiagnostics.h"
#include "platform/core/preferences.h"
#include "testtree.h"
#include "tools/toolhost.h"
#include "tools/transfersheet.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLayout>
#include <QMainWindow>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

// The tool host and the transfer sheet over a real model, real folders and
// the real transfer engine.
class ToolHostTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((m_home / "data").string()));
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((m_home / "config").string()));
    }

    void init()
    {
        m_tree = std::make_unique<test::TestTree>();
        m_tree->file("Left/a.txt", "from the left");
        m_tree->file("Left/b.txt", "b");
        m_tree->file("Inbox/a.txt", "already here");
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((*m_tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((*m_tree / "Inbox").string()));
        CommanderModelOptions options;
        options.panes.preferences = &m_preferences;
        options.panes.metadataIntervalMs = 3'600'000;
        options.queuePollIntervalMs = 10;
        m_model = std::make_unique<CommanderModel>(std::move(options));
        m_window = std::make_unique<QMainWindow>();
        CommanderThemeKey::set(m_window.get(), CommanderTheme::forest);
        m_host = new ToolHost(*m_model, m_window.get());
        m_window->show();
    }

    void cleanup()
    {
        m_window.reset();
        m_model.reset();
        m_tree.reset();
    }

    void transferSheetInTheCommonFrame()
    {
        m_model->transfer({*m_tree / "Left/a.txt", *m_tree / "Left/b.txt"}, *m_tree / "Inbox", false);
        QDialog *sheet = m_host->sheet();
        QVERIFY(sheet);
        QVERIFY(sheet->isVisible());
        QCOMPARE(sheet->windowModality(), Qt::WindowModal);
        QCOMPARE(sheet->parentWidget(), m_window.get());
        QCOMPARE(sheet->minimumSize(), QSize(620, 300));
        QCOMPARE(sheet->layout()->contentsMargins(), QMargins(20, 20, 20, 20));
        QCOMPARE(sheet->palette().color(QPalette::Window), colours(CommanderTheme::forest).window);
        QCOMPARE(sheet->palette().color(QPalette::Highlight), colours(CommanderTheme::forest).accent);

        auto *transfer = sheet->findChild<TransferSheet *>();
        QVERIFY(transfer);
        QCOMPARE(sheet->findChild<QLabel *>("sheetTitle")->text(), QStringLiteral("Copy 2 item(s)"));
        QCOMPARE(sheet->findChild<QLabel *>("destinationLabel")->text(),
                 "To: " + QString::fromStdString((*m_tree / "Inbox").string()));
        auto *picker = sheet->findChild<QComboBox *>("policyPicker");
        QCOMPARE(picker->count(), 4);
        QStringList labels;
        for (int index = 0; index < picker->count(); ++index)
            labels << picker->itemText(index);
        QCOMPARE(labels, (QStringList{"Stop", "Skip", "Keep both", "Replace (old item to Trash)"}));
        QCOMPARE(picker->currentText(), QStringLiteral("Stop"));
        QCOMPARE(sheet->findChild<QLabel *>("noteLabel")->text(), TransferSheet::note);
    }

    void returnQueuesWithStopWhichRefusesAnExistingName()
    {
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", true);
        QDialog *sheet = m_host->sheet();
        QVERIFY(sheet);
        QTest::keyClick(sheet, Qt::Key_Return);
        QVERIFY(!m_model->tool());
        QTRY_VERIFY(!sheet->isVisible());
        QCOMPARE(int(m_model->queue().items().size()), 1);
        QCOMPARE(m_model->queue().items().front().title, QStringLiteral("Move 1 → Inbox"));
        QTRY_VERIFY(m_model->queue().items().front().isFinished());
        QVERIFY(m_model->queue().items().front().state.startsWith("Failed: "));
        QCOMPARE(test::TestTree::read(*m_tree / "Inbox/a.txt"), std::string("already here"));
        QVERIFY(fs::exists(*m_tree / "Left/a.txt"));
    }

    void addToQueueCopiesWithTheChosenPolicy()
    {
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", false);
        auto *transfer = m_host->sheet()->findChild<TransferSheet *>();
        transfer->findChild<QComboBox *>("policyPicker")->setCurrentIndex(3);
        transfer->findChild<QPushButton *>("addButton")->click();
        QVERIFY(!m_model->tool());
        QCOMPARE(m_model->queue().items().front().title, QStringLiteral("Copy 1 → Inbox"));
        QTRY_COMPARE(m_model->queue().items().front().state, QStringLiteral("Complete"));
        QCOMPARE(test::TestTree::read(*m_tree / "Inbox/a.txt"), std::string("from the left"));
        QVERIFY(fs::exists(*m_tree / "Left/a.txt"));
    }

    void aNewSheetStartsAtStopWhateverWasChosenBefore()
    {
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", false);
        m_host->sheet()->findChild<QComboBox *>("policyPicker")->setCurrentIndex(2);
        QTest::keyClick(m_host->sheet(), Qt::Key_Escape);
        QVERIFY(!m_model->tool());
        m_model->transfer({*m_tree / "Left/b.txt"}, *m_tree / "Inbox", false);
        QCOMPARE(m_host->sheet()->findChild<QComboBox *>("policyPicker")->currentText(),
                 QStringLiteral("Stop"));
    }

    void closingASheetGivesTheKeyboardBackToTheWindow()
    {
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", false);
        QDialog *sheet = m_host->sheet();
        QApplication::setActiveWindow(sheet);
        QTRY_COMPARE(QApplication::activeWindow(), sheet);
        QTest::keyClick(sheet, Qt::Key_Escape);
        QTRY_COMPARE(QApplication::activeWindow(), m_window.get());
    }

    void cancelAndEscapeAddNothing()
    {
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", false);
        m_host->sheet()->findChild<QPushButton *>("cancelButton")->click();
        QVERIFY(!m_model->tool());
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", false);
        QTest::keyClick(m_host->sheet(), Qt::Key_Escape);
        QVERIFY(!m_model->tool());
        QVERIFY(m_model->queue().items().empty());
    }

    void closingTheDialogReturnsTheToolToNone()
    {
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", false);
        QPointer<QDialog> sheet = m_host->sheet();
        sheet->close();
        QVERIFY(!m_model->tool());
        QTRY_VERIFY(!sheet);
        QVERIFY(m_model->queue().items().empty());
    }

    void droppingTheRequestClosesTheSheet()
    {
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", false);
        QPointer<QDialog> sheet = m_host->sheet();
        m_model->setTool(std::nullopt);
        QVERIFY(!m_host->sheet());
        QTRY_VERIFY(!sheet);
    }

    void aNewPayloadReplacesTheSheet()
    {
        m_model->transfer({*m_tree / "Left/a.txt"}, *m_tree / "Inbox", false);
        QPointer<QDialog> first = m_host->sheet();
        m_model->transfer({*m_tree / "Left/a.txt", *m_tree / "Left/b.txt"}, *m_tree / "Inbox", true);
        QVERIFY(m_host->sheet() != first);
        QCOMPARE(m_host->sheet()->findChild<QLabel *>("sheetTitle")->text(),
                 QStringLiteral("Move 2 item(s)"));
        QVERIFY(m_model->tool());
        QTRY_VERIFY(!first);
        QVERIFY(m_model->tool()); // closing the first did not clear the second
    }

    void kindsWithoutASheetShowNothingAndFreeTheKeyboard()
    {
        m_model->connect();
        QVERIFY(!m_host->sheet());
        QTRY_VERIFY(!m_model->tool());
    }

    void queueTitles()
    {
        QCOMPARE(TransferSheet::queueTitle(1, "/Volumes/Data/Inbox", true), QStringLiteral("Move 1 → Inbox"));
        QCOMPARE(TransferSheet::queueTitle(3, "/home/me/Photos/", false), QStringLiteral("Copy 3 → Photos"));
        QCOMPARE(TransferSheet::queueTitle(2, "/", false), QStringLiteral("Copy 2 → /"));
    }

private:
    test::TestTree m_home;
    Preferences m_preferences{QString::fromStdString((m_home / "prefs.ini").string())};
    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<CommanderModel> m_model;
    std::unique_ptr<QMainWindow> m_window;
    ToolHost *m_host = nullptr;
};

QTEST_MAIN(ToolHostTest)
#include "tst_toolhost.moc"
