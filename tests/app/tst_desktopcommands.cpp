#include "model/commandermodel.h"
#include "platform/core/preferences.h"
#include "platform/desktop/fileclipboard.h"
#include "platform/desktop/standarddesktopservices.h"
#include "testtree.h"

#include <QAbstractButton>
#include <QApplication>
#include <QClipboard>
#include <QLineEdit>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

void whenModal(std::function<void(QWidget *)> act)
{
    QTimer::singleShot(0, [act = std::move(act)] {
        if (QWidget *modal = QApplication::activeModalWidget())
            act(modal);
        else
            whenModal(act);
    });
}

void click(QWidget *dialog, const QString &label)
{
    for (auto *button : dialog->findChildren<QAbstractButton *>())
        if (button->text().remove('&') == label)
            return button->click();
    QFAIL(qPrintable("no button " + label));
}

} // namespace

// The commander model driven through the real desktop services: real dialogs
// answered as a user would, the real clipboard and the real quick look.
class DesktopCommandsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void newFolderThroughThePrompt();
    void trashThroughTheConfirmation();
    void copyPutsFileReferencesOnTheClipboard();
    void pasteFromAnotherFileManagerOpensACopyIntoTheActiveFolder();
    void unreadableItemShowsCannotPreview();

private:
    QTemporaryDir m_data;
    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<CommanderModel> m_model;
    fs::path m_home;
};

void DesktopCommandsTest::initTestCase()
{
    QVERIFY(m_data.isValid());
    qputenv("XDG_DATA_HOME", m_data.path().toUtf8());
}

void DesktopCommandsTest::init()
{
    m_tree = std::make_unique<test::TestTree>();
    m_home = m_tree->folder("home");
    m_tree->folder("home/Downloads");
    m_tree->file("home/a.txt", "a");
    m_tree->file("home/b.txt", "b");
    qputenv("HOME", QByteArray::fromStdString(m_home.string()));
    m_preferences = std::make_unique<Preferences>(QString::fromStdString((*m_tree / "prefs.ini").string()));

    CommanderModelOptions options;
    options.desktop = standardDesktopServices(nullptr);
    options.desktop.requestQuit = [] {};
    options.panes.preferences = m_preferences.get();
    options.queuePollIntervalMs = 10;
    m_model = std::make_unique<CommanderModel>(std::move(options));
    QTRY_VERIFY_WITH_TIMEOUT(!m_model->left().loading() && !m_model->right().loading(), 5000);
}

void DesktopCommandsTest::cleanup()
{
    m_model.reset();
    m_preferences.reset();
    m_tree.reset();
}

void DesktopCommandsTest::newFolderThroughThePrompt()
{
    whenModal([](QWidget *dialog) {
        auto *field = dialog->findChild<QLineEdit *>();
        QCOMPARE(field->text(), QStringLiteral("New Folder"));
        field->setText(QStringLiteral("Reports"));
        click(dialog, QStringLiteral("OK"));
    });
    m_model->perform(7);
    QTRY_VERIFY_WITH_TIMEOUT(!m_model->queue().hasWork(), 5000);
    QCOMPARE(m_model->queue().items().back().state, QStringLiteral("Complete"));
    QVERIFY(fs::is_directory(m_home / "Reports"));
    // The completion refresh lists the new folder.
    QTRY_VERIFY_WITH_TIMEOUT(m_model->left().visibleIndexOf(m_home / "Reports").has_value(), 5000);
}

void DesktopCommandsTest::trashThroughTheConfirmation()
{
    m_model->left().setSelection({m_home / "a.txt"});
    QString question;
    whenModal([&](QWidget *dialog) {
        question = qobject_cast<QMessageBox *>(dialog)->informativeText();
        click(dialog, QStringLiteral("Continue"));
    });
    m_model->perform(8);
    QVERIFY(question.startsWith(QStringLiteral("Move 1 selected item(s) to ")));
    QTRY_VERIFY_WITH_TIMEOUT(!m_model->queue().hasWork(), 5000);
    QCOMPARE(m_model->queue().items().back().state, QStringLiteral("Complete"));
    QVERIFY(!fs::exists(m_home / "a.txt"));
    QVERIFY(fs::exists(fs::path(m_data.path().toStdString()) / "Trash/files/a.txt"));
}

void DesktopCommandsTest::copyPutsFileReferencesOnTheClipboard()
{
    m_model->left().setSelection({m_home / "a.txt", m_home / "b.txt"});
    m_model->clipboardCopy();
    QCOMPARE(m_model->status(), QStringLiteral("Copied 2 file reference(s)"));
    const QMimeData *data = QApplication::clipboard()->mimeData();
    QVERIFY(data);
    QCOMPARE(FileClipboard::items(*data), (std::vector<fs::path>{m_home / "a.txt", m_home / "b.txt"}));
    QVERIFY(data->data("x-special/gnome-copied-files").startsWith("copy\n"));
}

void DesktopCommandsTest::pasteFromAnotherFileManagerOpensACopyIntoTheActiveFolder()
{
    auto data = std::make_unique<QMimeData>();
    data->setData("x-special/gnome-copied-files",
                  "copy\nfile://" + QByteArray::fromStdString((m_home / "a.txt").string()));
    QApplication::clipboard()->setMimeData(data.release());
    m_model->setActiveLeft(false);
    m_model->clipboardPaste();
    QVERIFY(m_model->tool());
    const auto *transfer = m_model->tool()->as<ToolSheet::Transfer>();
    QVERIFY(transfer);
    QCOMPARE(transfer->sources, std::vector<fs::path>{m_home / "a.txt"});
    QCOMPARE(transfer->destination, m_home / "Downloads");
    QVERIFY(!transfer->move);
}

void DesktopCommandsTest::unreadableItemShowsCannotPreview()
{
    // Listed a moment ago, gone when the quick look reads it.
    m_model->left().setCursor(m_home / "b.txt");
    fs::remove(m_home / "b.txt");
    QString alert;
    bool shown = false;
    whenModal([&](QWidget *dialog) {
        auto *box = qobject_cast<QMessageBox *>(dialog);
        alert = box->text() + '|' + box->informativeText();
        shown = true;
        click(dialog, QStringLiteral("OK"));
    });
    m_model->perform(3);
    QTRY_VERIFY_WITH_TIMEOUT(shown, 5000);
    QCOMPARE(alert, QStringLiteral("Cannot preview|No such file or directory"));
}

QTEST_MAIN(DesktopCommandsTest)
#include "tst_desktopcommands.moc"
