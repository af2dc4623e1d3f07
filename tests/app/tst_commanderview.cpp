#include "app/commanderview.h"
#include "app/detail/panetablemodel.h"
#include "app/detail/panetableview.h"
#include "app/filepane.h"
#include "model/commanderthemecolours.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"
#include "platform/desktop/fileurl.h"
#include "quillorn/version.h"

#include "testtree.h"

#include <QApplication>
#include <QLabel>
#include <QMimeData>
#include <QSignalSpy>
#include <QSplitter>
#include <QTest>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

namespace {

class ScopedEnvironment {
public:
    // No value: the variable is removed for the scope.
    ScopedEnvironment(const char *name, const std::optional<QByteArray> &value)
        : m_name(name), m_old(qgetenv(name)), m_wasSet(qEnvironmentVariableIsSet(name))
    {
        if (value)
            qputenv(name, *value);
        else
            qunsetenv(name);
    }
    ~ScopedEnvironment()
    {
        if (m_wasSet)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }

private:
    const char *m_name;
    QByteArray m_old;
    bool m_wasSet;
};

QByteArray bytes(const fs::path &path)
{
    return QByteArray::fromStdString(path.native());
}

// A window over a home folder of its own, with its own preferences file and a
// recorder standing in for the default application.
struct WindowFixture {
    explicit WindowFixture(test::TestTree &tree)
        : home(tree.folder("home")), downloads(tree.folder("home/Downloads")),
          environment("HOME", bytes(home)), preferences(QString::fromStdString((tree / "prefs.ini").string()))
    {
    }

    std::unique_ptr<CommanderView> open()
    {
        CommanderModelOptions options;
        options.panes.preferences = &preferences;
        options.panes.metadataIntervalMs = 3'600'000;
        options.panes.applicationIsActive = [] { return false; };
        options.desktop.openFile = [this](const fs::path &file) { openedFiles.push_back(file); };
        auto view = std::make_unique<CommanderView>(options);
        waitListed(view->model().left());
        waitListed(view->model().right());
        return view;
    }

    static void waitListed(PaneModel &pane)
    {
        if (pane.loading()) {
            QSignalSpy listed(&pane, &PaneModel::listingApplied);
            QVERIFY(listed.wait(5000));
        }
    }

    fs::path home;
    fs::path downloads;
    ScopedEnvironment environment;
    Preferences preferences;
    std::vector<fs::path> openedFiles;
};

QPoint rowPoint(FilePane *pane, int row)
{
    return pane->listView()->visualRect(pane->listModel()->index(row, 0)).center();
}

} // namespace

class TestCommanderView : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void windowHasTitleSizeAndTwoPanes()
    {
        test::TestTree tree;
        WindowFixture f(tree);
        auto view = f.open();
        QCOMPARE(view->windowTitle(), QStringLiteral("Quillorn v") + QString::fromLatin1(kVersion));
        QCOMPARE(view->size(), QSize(1180, 740));
        auto *splitter = view->findChild<QSplitter *>("paneSplitter");
        QVERIFY(splitter);
        QCOMPARE(splitter->count(), 2);
        QCOMPARE(splitter->widget(0), view->leftPane());
        QCOMPARE(splitter->widget(1), view->rightPane());
        QCOMPARE(&view->leftPane()->pane(), &view->model().left());
        QCOMPARE(view->model().left().directory(), f.home);
        QCOMPARE(view->model().right().directory(), f.downloads);
        QCOMPARE(view->model().left().persistenceKey(), "left");
        QCOMPARE(view->model().right().persistenceKey(), "right");
        QVERIFY(view->leftPane()->active());
        QVERIFY(!view->rightPane()->active());
    }

    void previewFoldersPersistNothing()
    {
        test::TestTree tree;
        WindowFixture f(tree);
        const fs::path left = tree.folder("fixtures/left");
        const fs::path right = tree.folder("fixtures/right");
        ScopedEnvironment l("QUILLORN_RELEASE_PREVIEW_LEFT", bytes(left));
        ScopedEnvironment r("QUILLORN_RELEASE_PREVIEW_RIGHT", bytes(right));
        auto view = f.open();
        QCOMPARE(view->model().left().directory(), left);
        QCOMPARE(view->model().right().directory(), right);
        QVERIFY(view->model().left().persistenceKey().isEmpty());
        view->model().left().navigate(tree.root());
        f.preferences.sync();
        QVERIFY(!f.preferences.contains("left.lastDirectory"));
        QVERIFY(!f.preferences.contains(".lastDirectory"));
    }

    void themeComesFromEnvironmentThenStore()
    {
        test::TestTree tree;
        WindowFixture f(tree);
        const ScopedEnvironment unset(kPreviewThemeVariable, std::nullopt);
        f.preferences.setText(kThemePreferenceKey, "Midnight");
        {
            auto view = f.open();
            QCOMPARE(view->theme(), CommanderTheme::midnight);
            QCOMPARE(view->palette().color(QPalette::Window), colours(CommanderTheme::midnight).window);
            QCOMPARE(view->leftPane()->theme(), CommanderTheme::midnight);
            QCOMPARE(view->rightPane()->theme(), CommanderTheme::midnight);
            QCOMPARE(CommanderThemeKey::value(view->rightPane()), CommanderTheme::midnight);
        }
        {
            ScopedEnvironment theme(kPreviewThemeVariable, "Forest");
            auto view = f.open();
            QCOMPARE(view->theme(), CommanderTheme::forest);
            QCOMPARE(view->leftPane()->theme(), CommanderTheme::forest);
        }
        {
            ScopedEnvironment theme(kPreviewThemeVariable, "forest");
            auto view = f.open();
            QCOMPARE(view->theme(), CommanderTheme::midnight);
        }
    }

    void clickActivatesPaneAndDoubleClickOpens()
    {
        test::TestTree tree;
        WindowFixture f(tree);
        tree.folder("home/Downloads/Photos");
        tree.file("home/Downloads/notes.txt", "n");
        auto view = f.open();
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
        FilePane *right = view->rightPane();
        QSignalSpy activeChanged(&view->model(), &CommanderModel::activeLeftChanged);
        QTest::mouseClick(right->findChild<QLabel *>("footerItems"), Qt::LeftButton);
        QVERIFY(!view->model().activeLeft());
        QVERIFY(right->active());
        QVERIFY(!view->leftPane()->active());
        QCOMPARE(activeChanged.count(), 1);

        PaneModel &pane = view->model().right();
        const int file = *pane.visibleIndexOf(f.downloads / "notes.txt");
        QTest::mouseDClick(right->listView()->viewport(), Qt::LeftButton, Qt::NoModifier,
                           rowPoint(right, file));
        QCOMPARE(f.openedFiles, std::vector<fs::path>{f.downloads / "notes.txt"});

        QTest::mouseClick(view->leftPane()->findChild<QLabel *>("footerItems"), Qt::LeftButton);
        QVERIFY(view->model().activeLeft());
        const int folder = *pane.visibleIndexOf(f.downloads / "Photos");
        QTest::mouseDClick(right->listView()->viewport(), Qt::LeftButton, Qt::NoModifier,
                           rowPoint(right, folder));
        QVERIFY(!view->model().activeLeft());
        QCOMPARE(pane.directory(), f.downloads / "Photos");
        QCOMPARE(view->model().left().directory(), f.home);
    }

    void dropOffersCopyIntoThatPanesFolder()
    {
        test::TestTree tree;
        WindowFixture f(tree);
        const fs::path source = tree.file("elsewhere/report.pdf", "%PDF");
        auto view = f.open();
        QMimeData mime;
        mime.setUrls({fileUrl(source), QUrl("https://example.com/")});
        FilePane *right = view->rightPane();
        QDragEnterEvent enter(QPoint(30, 30), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(right, &enter);
        QDropEvent drop(QPointF(30, 30), Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(right, &drop);
        QTRY_VERIFY(view->model().tool().has_value());
        const auto *transfer = view->model().tool()->as<ToolSheet::Transfer>();
        QVERIFY(transfer);
        QCOMPARE(transfer->sources, std::vector<fs::path>{source});
        QCOMPARE(transfer->destination, f.downloads);
        QVERIFY(!transfer->move);
    }
};

QTEST_MAIN(TestCommanderView)
#include "tst_commanderview.moc"
