#pragma once

#include "app/commanderappdelegate.h"
#include "app/commandertoolbar.h"
#include "app/commanderview.h"
#include "app/detail/panetablemodel.h"
#include "app/detail/panetableview.h"
#include "app/filepane.h"
#include "platform/core/displaytext.h"
#include "platform/core/preferences.h"
#include "platform/desktop/fileclipboard.h"
#include "services/directorytools.h"
#include "testtree.h"
#include "tools/toolhost.h"

#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include <memory>

namespace quillorn::test {

namespace fs = std::filesystem;

// Records the keys that reach a widget, that is the keys nobody consumed before it.
struct KeyRecorder : QObject {
    QList<int> keys;
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::KeyPress)
            keys << static_cast<QKeyEvent *>(event)->key();
        return false;
    }
};

inline QString label(QWidget *parent, const char *name)
{
    return parent->findChild<QLabel *>(name)->text();
}

inline QString name(const fs::path &path)
{
    return QString::fromStdString(path.filename().string());
}

// The main window, shown and active, over the folders Left (alpha/, b.txt,
// c.txt, d.txt, .hidden) and Right (Archive/, r.txt). Its desktop services
// record their calls in `calls`, except the clipboard, which is the system
// one and starts out holding Right/r.txt.
struct WindowFixture {
    void setUp()
    {
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((home / "data").string()));
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((home / "config").string()));
        qputenv("XDG_STATE_HOME", QByteArray::fromStdString((home / "state").string())); // save journals
        tree = std::make_unique<TestTree>();
        for (const char *folder : {"Left/alpha", "Right/Archive"})
            tree->folder(folder);
        for (const char *file : {"Left/b.txt", "Left/c.txt", "Left/d.txt", "Left/.hidden", "Right/r.txt"})
            tree->file(file, "x");
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((*tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((*tree / "Right").string()));
        QApplication::clipboard()->setMimeData(FileClipboard::mimeData({*tree / "Right/r.txt"}).release());
        calls.clear();
        CommanderModelOptions options;
        options.panes.preferences = &preferences;
        options.panes.metadataIntervalMs = 3'600'000;
        options.panes.folderSizeCount = [this](const auto &folders, OperationControl &control,
                                               const auto &progress) {
            return sizeCount ? sizeCount(folders, control, progress)
                             : DirectoryTools::folderSizes(folders, control, progress);
        };
        options.queuePollIntervalMs = 10;
        DesktopServices &desktop = options.desktop;
        desktop.alert = [this](const AlertRequest &alert) {
            helpDetails = alert.detailedText;
            return calls << "alert:" + alert.message, -1;
        };
        prompt = {};
        desktop.prompt = [this](const QString &title, const QString &value) {
            calls << "prompt:" + title;
            return prompt ? prompt(title, value) : std::optional<QString>();
        };
        desktop.preview = [this](const fs::path &item, auto) { calls << "preview:" + name(item); };
        desktop.openFile = [this](const fs::path &file) { calls << "open:" + name(file); };
        desktop.requestQuit = [this] { calls << "quit"; };
        CommanderAppDelegate::queue = nullptr;
        view = std::make_unique<CommanderView>(std::move(options));
        for (PaneModel *pane : {&view->model().left(), &view->model().right()})
            waitListed(*pane);
        showActive();
        view->centralWidget()->installEventFilter(&recorder);
        recorder.keys.clear();
    }

    void tearDown()
    {
        view.reset();
        tree.reset();
    }

    void showActive()
    {
        view->show();
        QApplication::setActiveWindow(view.get());
        QVERIFY(QTest::qWaitForWindowActive(view.get()));
        view->centralWidget()->setFocus();
    }

    static void waitListed(PaneModel &pane)
    {
        QSignalSpy listed(&pane, &PaneModel::listingApplied);
        QVERIFY(!pane.loading() || listed.wait());
    }

    PaneModel &left() const { return view->model().left(); }

    template <typename Sheet> Sheet *sheet() const
    {
        QDialog *dialog = view->toolHost()->sheet();
        return dialog ? dialog->findChild<Sheet *>() : nullptr;
    }

    // Closes any sheet, puts the left pane's cursor on the named item (if listed),
    // presses the key in the window and returns the sheet it opened.
    template <typename Sheet>
    Sheet *openOn(const QString &item, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        view->model().setTool(std::nullopt);
        for (const FileEntry &entry : left().visible())
            if (displayName(entry.url()) == item)
                left().setCursor(entry.url());
        QTest::keyClick(view->centralWidget(), key, modifiers);
        return sheet<Sheet>();
    }

    QImage shot(QWidget *widget) const
    {
        return view->grab(QRect(widget->mapTo(view.get(), QPoint(0, 0)), widget->size())).toImage();
    }

    TestTree home;
    Preferences preferences{QString::fromStdString((home / "prefs.ini").string())};
    std::unique_ptr<TestTree> tree;
    std::unique_ptr<CommanderView> view;
    KeyRecorder recorder;
    QStringList calls;
    QString helpDetails; // the detailed text of the last alert
    // Answers the prompts when set (a test that types into the real one sets
    // standardDesktopServices(view).prompt); otherwise they are cancelled.
    std::function<std::optional<QString>(const QString &title, const QString &value)> prompt;
    // Counts folder sizes in place of DirectoryTools::folderSizes when set
    // before the count starts (a test that holds a count to stop it).
    FolderSizeCount sizeCount;
};

} // namespace quillorn::test
