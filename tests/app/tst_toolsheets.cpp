#include "windowfixture.h"

#include "app/commandertoolbar.h"
#include "asnobody.h"
#include "operations/operationcontrol.h"
#include "platform/core/displaytext.h"
#include "tools/comparesheet.h"
#include "tools/infosheet.h"
#include "tools/searchsheet.h"
#include "tools/toolhost.h"

#include <QCheckBox>
#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableView>
#include <QToolButton>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace quillorn;
using namespace quillorn::test;

// The search, compare and info sheets opened from the real main window by its
// keys and tool bar, over real folders.
class ToolSheetsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_f.setUp(); }
    void cleanup() { m_f.tearDown(); }

    void searchSheetFindsShowsAFolderAndCloses()
    {
        m_f.tree->file("Left/alpha/deep.txt", "x");
        auto *sheet = open<SearchSheet>(Qt::Key_F);
        QCOMPARE(sheet->findChild<QLabel *>("sheetTitle")->text(),
                 "Search " + displayText(*m_f.tree / "Left"));
        QCOMPARE(label(sheet, "statusLabel"), "Search names recursively; symbolic links are not followed.");
        auto *query = sheet->findChild<QLineEdit *>("queryField");
        auto *button = sheet->findChild<QPushButton *>("searchButton");
        QCOMPARE(query->placeholderText(), "Filename contains…");
        QVERIFY(!button->isEnabled());

        // Return with an empty query still searches, and never reaches the window.
        QTest::keyClick(query, Qt::Key_Return);
        QTRY_COMPARE(label(sheet, "statusLabel"), "0 matches. ");
        QTest::keyClicks(query, "TXT");
        QVERIFY(button->isEnabled());
        QTest::keyClick(query, Qt::Key_Return);
        QTRY_COMPARE(label(sheet, "statusLabel"), "4 matches. ");
        QVERIFY(!m_f.recorder.keys.contains(Qt::Key_Return) && m_f.calls.isEmpty());
        QCOMPARE(m_f.left().directory(), *m_f.tree / "Left");

        query->setText(".hid");
        button->click();
        QTRY_COMPARE(label(sheet, "statusLabel"), "0 matches. ");
        sheet->findChild<QCheckBox *>("hiddenToggle")->setChecked(true);
        button->click();
        QTRY_COMPARE(label(sheet, "statusLabel"), "1 matches. ");

        query->setText("deep");
        button->click();
        QTRY_VERIFY(!sheet->running());
        QCOMPARE(label(sheet, "statusLabel"), "1 matches. ");
        auto *list = sheet->findChild<QTableView *>("resultList");
        QCOMPARE(list->model()->index(0, 0).data().toString(), "alpha/deep.txt");
        const QRect showFolder = list->visualRect(list->model()->index(0, 1));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, showFolder.center());
        QVERIFY(!m_f.view->model().tool());
        QTRY_COMPARE(m_f.left().directory(), *m_f.tree / "Left/alpha");
        QTRY_VERIFY(!m_f.view->toolHost()->sheet());
    }

    // Regression: a sheet closed by the model (here by "Show folder") left no
    // window with the keyboard, so the next key went nowhere.
    void keysReachTheWindowAfterShowFolder()
    {
        auto *sheet = open<SearchSheet>(Qt::Key_F);
        sheet->findChild<QLineEdit *>("queryField")->setText("alpha");
        sheet->search();
        QTRY_COMPARE(sheet->report().items.size(), std::size_t(1));
        sheet->showFolder(0);
        QTRY_VERIFY(!m_f.view->toolHost()->sheet());
        QTRY_COMPARE(QApplication::activeWindow(), m_f.view.get());
        m_f.left().setCursor(*m_f.tree / "Left/c.txt");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_I, Qt::ControlModifier);
        QVERIFY(current<InfoSheet>());
    }

    void everyWayOfClosingASearchCancelsIt()
    {
        for (int route = 0; route < 3; ++route) {
            auto *sheet = open<SearchSheet>(Qt::Key_F);
            sheet->findChild<QLineEdit *>("queryField")->setText("x");
            sheet->search();
            const std::shared_ptr<OperationControl> control = sheet->control();
            sheet->search(); // Return while one runs starts nothing
            QCOMPARE(sheet->control(), control);
            QDialog *dialog = m_f.view->toolHost()->sheet();
            if (route == 0)
                QTest::keyClick(dialog, Qt::Key_Escape);
            else if (route == 1)
                sheet->findChild<QPushButton *>("closeButton")->click();
            else
                m_f.view->model().setTool(std::nullopt);
            QTRY_VERIFY(control->isCancelled());
            QVERIFY(!m_f.view->model().tool());
        }
    }

    void searchWarnsAboutAnUnreadableFolder()
    {
        m_f.tree->file("Left/locked/b.txt", "x");
        ::chmod((*m_f.tree / "Left/locked").c_str(), 0);
        ::chmod(m_f.tree->root().c_str(), 0755);
        auto *sheet = open<SearchSheet>(Qt::Key_F);
        sheet->findChild<QLineEdit *>("queryField")->setText("b.");
        AsNobody nobody;
        if (!nobody.skipReason.empty())
            QSKIP(nobody.skipReason.c_str());
        sheet->search();
        QTRY_COMPARE(label(sheet, "statusLabel"), "1 matches. locked: Permission denied");
    }

    void compareSheetShowsTheDifferencesAndEscapeStopsIt()
    {
        auto *sheet = openCompare();
        QCOMPARE(label(sheet, "sheetTitle"), "Compare folders");
        QCOMPARE(label(sheet, "rootsLabel"),
                 "Left: " + displayText(*m_f.tree / "Left") + "\nRight: " + displayText(*m_f.tree / "Right"));
        QCOMPARE(label(sheet, "noteLabel"), "Compares file contents and symlink targets, including hidden "
                                            "files. Permissions and dates are not compared.");
        QTRY_COMPARE(label(sheet, "statusLabel"), "7 differences");
        const QString rows = sheet->findChild<QPlainTextEdit *>("rowList")->toPlainText();
        QVERIFY(rows.startsWith("LEFT ONLY   .hidden\nRIGHT ONLY  Archive\nLEFT ONLY   alpha\n"));
        QTest::keyClick(m_f.view->toolHost()->sheet(), Qt::Key_Escape);
        QTRY_VERIFY(!m_f.view->toolHost()->sheet());

        // Identical copies, then a long comparison closed with Escape.
        m_f.left().navigate(*m_f.tree / "Right");
        FixtureWindow::waitListed(m_f.left());
        sheet = openCompare();
        QTRY_COMPARE(label(sheet, "statusLabel"), "Folder contents match");
        m_f.view->model().setTool(std::nullopt);

        for (const char *side : {"Left/big", "Right/big"})
            std::filesystem::resize_file(m_f.tree->file(side), std::uintmax_t(1) << 30);
        m_f.left().navigate(*m_f.tree / "Left");
        FixtureWindow::waitListed(m_f.left());
        sheet = openCompare();
        const std::shared_ptr<OperationControl> control = sheet->control();
        QTRY_VERIFY(control->progress().completed > 0);
        QCOMPARE(label(sheet, "statusLabel"), "Comparing recursively using SHA-256…");
        QElapsedTimer answer;
        answer.start();
        QTest::keyClick(m_f.view->toolHost()->sheet(), Qt::Key_Escape);
        QVERIFY(!m_f.view->model().tool());
        QVERIFY2(answer.elapsed() < 50, qPrintable(QString::number(answer.elapsed())));
        QVERIFY(control->isCancelled());
    }

    void compareSheetShowsThePlatformError()
    {
        m_f.tree->file("Right/locked/x", "x");
        ::chmod((*m_f.tree / "Right/locked").c_str(), 0);
        ::chmod(m_f.tree->root().c_str(), 0755);
        AsNobody nobody;
        if (!nobody.skipReason.empty())
            QSKIP(nobody.skipReason.c_str());
        auto *sheet = openCompare();
        QTRY_COMPARE(label(sheet, "statusLabel"),
                     displayText(*m_f.tree / "Right/locked") + ": Permission denied");
        QVERIFY(sheet->findChild<QPlainTextEdit *>("rowList")->toPlainText().isEmpty());
    }

    void infoSheetDescribesAndSetsPermissions()
    {
        const std::filesystem::path file = *m_f.tree / "Left/c.txt";
        ::chmod(file.c_str(), 04755);
        const struct timespec times[2] = {{0, UTIME_OMIT}, {1709647629, 0}}; // 2024-03-05 14:07:09 UTC
        ::utimensat(AT_FDCWD, file.c_str(), times, 0);
        auto *sheet = openInfo("c.txt");
        QCOMPARE(label(sheet, "sheetTitle"), "File information");
        const QString me = QString::fromLocal8Bit(::getpwuid(::geteuid())->pw_name);
        QCOMPARE(sheet->details(),
                 displayText(file) + "\nType: regular file\nSize: 1 bytes\nOwner: " + me +
                     "\nGroup: " + QString::fromLocal8Bit(::getgrgid(::getegid())->gr_name) +
                     "\nModified: 2024-03-05 14:07:09 +0000\nMode: 4755");
        auto *field = sheet->findChild<QLineEdit *>("permissionsField");
        QCOMPARE(field->placeholderText(), "POSIX mode (e.g. 644)");
        QCOMPARE(field->text(), "755");

        for (const char *bad : {"75", "7555", "8aa", " 644"}) {
            field->setText(bad);
            sheet->findChild<QPushButton *>("applyButton")->click();
            QCOMPARE(label(sheet, "statusLabel"), "Enter three octal digits (000–777).");
        }
        QCOMPARE(std::filesystem::status(file).permissions(), std::filesystem::perms(04755));
        field->setText("755"); // set-user-ID goes
        QTest::keyClick(field, Qt::Key_Return);
        QCOMPARE(label(sheet, "statusLabel"), "Permissions updated for this item only.");
        QVERIFY(sheet->details().endsWith("Mode: 0755"));
        field->setText("000");
        sheet->applyPermissions();
        QCOMPARE(field->text(), "000");
        QCOMPARE(int(std::filesystem::status(file).permissions()), 0);
        QVERIFY(!m_f.recorder.keys.contains(Qt::Key_Return));

        std::filesystem::remove(file);
        field->setText("644");
        sheet->applyPermissions();
        QCOMPARE(label(sheet, "statusLabel"), displayText(file) + ": No such file or directory");
        QTest::keyClick(m_f.view->toolHost()->sheet(), Qt::Key_Escape);
        QTRY_VERIFY(!m_f.view->toolHost()->sheet());
    }

    void infoSheetOnFoldersLinksAndOthersFiles()
    {
        const std::filesystem::path shared = m_f.tree->folder("Left/shared");
        ::chmod(shared.c_str(), 01777);
        m_f.tree->symlink("Left/link", "b.txt");
        m_f.tree->file("Left/theirs", "x");
        m_f.tree->file("Left/odd\xff", "x");
        const bool orphaned =
            ::chown(m_f.tree->file("Left/orphan").c_str(), 54321, 54321) == 0; // no such accounts
        ::chmod(m_f.tree->root().c_str(), 0755);
        m_f.left().refresh();
        FixtureWindow::waitListed(m_f.left());

        auto *sheet = openInfo("shared");
        QCOMPARE(sheet->permissions(), "777");
        QVERIFY(sheet->details().contains("\nType: directory\n") && sheet->details().endsWith("Mode: 1777"));
        sheet->applyPermissions(); // 777 applied: the sticky bit goes
        QVERIFY(sheet->details().endsWith("Mode: 0777"));
        m_f.view->model().setTool(std::nullopt);

        sheet = openInfo("link");
        QVERIFY(sheet->details().contains("\nType: symbolic link\n"));
        QVERIFY(!sheet->findChild<QPushButton *>("applyButton")->isEnabled());
        sheet->applyPermissions();
        QCOMPARE(sheet->status(), "Cannot change symbolic link permissions.");
        m_f.view->model().setTool(std::nullopt);

        if (orphaned) {
            sheet = openInfo("orphan");
            QVERIFY(sheet->details().contains("\nOwner: Unknown\nGroup: Unknown\n"));
            m_f.view->model().setTool(std::nullopt);
        }

        // A name that is not UTF-8: shown with U+FFFD, changed by its real bytes.
        const std::filesystem::path odd = *m_f.tree / "Left/odd\xff";
        m_f.left().setCursor(odd);
        sheet = open<InfoSheet>(Qt::Key_I);
        QVERIFY(sheet->details().startsWith(displayText(*m_f.tree / "Left") + "/odd\uFFFD\n"));
        sheet->setPermissions("600");
        sheet->applyPermissions();
        QCOMPARE(std::filesystem::status(odd).permissions(), std::filesystem::perms(0600));
        m_f.view->model().setTool(std::nullopt);

        sheet = openInfo("theirs");
        AsNobody nobody;
        if (!nobody.skipReason.empty())
            QSKIP(nobody.skipReason.c_str());
        sheet->setPermissions("600");
        sheet->applyPermissions();
        QCOMPARE(sheet->status(), displayText(*m_f.tree / "Left/theirs") + ": Operation not permitted");
    }

private:
    using FixtureWindow = WindowFixture;

    template <typename Sheet> Sheet *open(Qt::Key key)
    {
        QTest::keyClick(m_f.view->centralWidget(), key, Qt::ControlModifier);
        return current<Sheet>();
    }

    template <typename Sheet> Sheet *current()
    {
        QDialog *dialog = m_f.view->toolHost()->sheet();
        return dialog ? dialog->findChild<Sheet *>() : nullptr;
    }

    CompareSheet *openCompare()
    {
        m_f.view->toolBar()->button("Compare")->click();
        return current<CompareSheet>();
    }

    InfoSheet *openInfo(const QString &item)
    {
        PaneModel &left = m_f.left();
        for (const FileEntry &entry : left.visible())
            if (displayName(entry.url()) == item)
                left.setCursor(entry.url());
        return open<InfoSheet>(Qt::Key_I);
    }

    static QString label(QWidget *sheet, const char *name)
    {
        return sheet->findChild<QLabel *>(name)->text();
    }

    WindowFixture m_f;
};

QTEST_MAIN(ToolSheetsTest)
#include "tst_toolsheets.moc"
