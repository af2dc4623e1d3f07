#include "app/commandertoolbar.h"
#include "app/functionkeybar.h"
#include "app/statusline.h"
#include "model/commandermodel.h"
#include "model/commanderthemecolours.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

#include <memory>

using namespace quillorn;
namespace fs = std::filesystem;

// The tool bar, the status line and the function-key bar over a real model of
// two real folders; desktop services are stand-ins that record their calls.
class WindowBarsTest : public QObject {
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
        m_tree->file("Left/a.txt", "a");
        m_tree->file("Left/b.txt", "b");
        m_tree->folder("Right");
        qputenv("QUILLORN_RELEASE_PREVIEW_LEFT", QByteArray::fromStdString((*m_tree / "Left").string()));
        qputenv("QUILLORN_RELEASE_PREVIEW_RIGHT", QByteArray::fromStdString((*m_tree / "Right").string()));
        m_calls.clear();
        CommanderModelOptions options;
        options.panes.preferences = &m_preferences;
        options.panes.metadataIntervalMs = 3'600'000;
        options.desktop.alert = [this](const AlertRequest &alert) {
            m_calls << "alert:" + alert.message;
            return -1;
        };
        options.desktop.writeClipboard = [this](const std::vector<fs::path> &items) {
            m_calls << "clipboard:" + QString::number(items.size());
        };
        m_model = std::make_unique<CommanderModel>(std::move(options));
        QSignalSpy listed(&m_model->left(), &PaneModel::listingApplied);
        QVERIFY(listed.count() > 0 || listed.wait());
        m_model->left().setCursor(std::nullopt);
        m_toolBar = std::make_unique<CommanderToolBar>(*m_model, [this](const fs::path &file) {
            m_calls << "open:" + QString::fromStdString(file.filename().string());
        });
    }

    void cleanup()
    {
        m_toolBar.reset();
        m_model.reset();
        m_tree.reset();
    }

    void buttonsInOrder()
    {
        QStringList labels;
        for (QToolButton *button : m_toolBar->findChildren<QToolButton *>())
            labels << button->text();
        QCOMPARE(labels, (QStringList{"Search", "Compare", "Info", "Open", "Connect", "Copy refs", "Paste",
                                      "New tab", "Close"}));
        for (QToolButton *button : m_toolBar->findChildren<QToolButton *>())
            QCOMPARE(button->focusPolicy(), Qt::NoFocus);
    }

    void itemButtonsFollowTheActivePanesItems()
    {
        for (const char *label : {"Info", "Open", "Copy refs"})
            QVERIFY2(!m_toolBar->button(label)->isEnabled(), label);
        m_model->left().setSelection({*m_tree / "Left/b.txt", *m_tree / "Left/a.txt"});
        for (const char *label : {"Info", "Open", "Copy refs"})
            QVERIFY2(m_toolBar->button(label)->isEnabled(), label);

        m_toolBar->button("Open")->click();
        QCOMPARE(m_calls, (QStringList{"open:a.txt", "open:b.txt"}));
        m_toolBar->button("Copy refs")->click();
        QCOMPARE(m_calls.last(), QStringLiteral("clipboard:2"));
        m_toolBar->button("Info")->click();
        QVERIFY(m_model->tool()->is<ToolSheet::Info>());
        QCOMPARE(m_model->tool()->as<ToolSheet::Info>()->item, *m_tree / "Left/a.txt");

        m_model->setActiveLeft(false); // the right pane is empty
        QVERIFY(!m_toolBar->button("Info")->isEnabled());
    }

    void closeIsDisabledWithOneTab()
    {
        QVERIFY(!m_toolBar->button("Close")->isEnabled());
        m_toolBar->button("New tab")->click();
        QCOMPARE(int(m_model->left().tabs().size()), 2);
        QVERIFY(m_toolBar->button("Close")->isEnabled());
        m_toolBar->button("Close")->click();
        QCOMPARE(int(m_model->left().tabs().size()), 1);
        QVERIFY(!m_toolBar->button("Close")->isEnabled());
    }

    void sheetButtons()
    {
        m_model->setActiveLeft(false);
        m_toolBar->button("Search")->click();
        QCOMPARE(m_model->tool()->as<ToolSheet::Search>()->root, *m_tree / "Right");
        m_toolBar->button("Compare")->click();
        const auto *compare = m_model->tool()->as<ToolSheet::Compare>();
        QCOMPARE(compare->left, *m_tree / "Left");
        QCOMPARE(compare->right, *m_tree / "Right");
        m_toolBar->button("Connect")->click();
        QVERIFY(m_model->tool()->is<ToolSheet::Connect>());
    }

    void activePaneLabel()
    {
        QLabel *label = m_toolBar->activePaneLabel();
        QCOMPARE(label->text(), QStringLiteral("LEFT PANE ACTIVE"));
        m_model->setActiveLeft(false);
        QCOMPARE(label->text(), QStringLiteral("RIGHT PANE ACTIVE"));
        m_toolBar->setTheme(CommanderTheme::aubergine);
        QCOMPARE(label->palette().color(QPalette::WindowText), colours(CommanderTheme::aubergine).accent);
    }

    void statusLineFollowsTheModel()
    {
        StatusLine line(*m_model);
        QCOMPARE(line.statusText(), QStringLiteral("Ready"));
        QCOMPARE(line.hintText(),
                 QStringLiteral("TAB Switch pane   •   SPACE Tag and advance   •   ⌘R Refresh"));
        m_model->left().setSelection({*m_tree / "Left/a.txt"});
        m_model->clipboardCopy();
        QCOMPARE(line.statusText(), QStringLiteral("Copied 1 file reference(s)"));
    }

    void functionKeyButtonsRunTheirCommands()
    {
        FunctionKeyBar bar(*m_model);
        QStringList captions;
        for (int number = 1; number <= 10; ++number) {
            QStringList parts;
            for (QLabel *label : bar.button(number)->findChildren<QLabel *>())
                parts << label->text();
            captions << parts.join(' ');
        }
        QCOMPARE(captions, (QStringList{"F1 Help", "F2 Rename", "F3 View", "F4 Edit", "F5 Copy", "F6 Move",
                                        "F7 New folder", "F8 Trash", "F9 Refresh", "F10 Quit"}));
        bar.show();
        bar.setTheme(CommanderTheme::forest);
        // The number is drawn in the accent colour, the label is not.
        const auto drawsIn = [](QWidget *widget, const QColor &colour) {
            const QImage image = widget->grab().toImage();
            for (int y = 0; y < image.height(); ++y)
                for (int x = 0; x < image.width(); ++x)
                    if (image.pixelColor(x, y) == colour)
                        return true;
            return false;
        };
        const QList<QLabel *> parts = bar.button(5)->findChildren<QLabel *>();
        QVERIFY(drawsIn(parts[0], colours(CommanderTheme::forest).accent));
        QVERIFY(!drawsIn(parts[1], colours(CommanderTheme::forest).accent));

        bar.button(1)->click();
        QCOMPARE(m_calls, QStringList{"alert:Keyboard help"});
        m_model->left().setSelection({*m_tree / "Left/b.txt"});
        bar.button(6)->click();
        const auto *transfer = m_model->tool()->as<ToolSheet::Transfer>();
        QVERIFY(transfer && transfer->move);
        QCOMPARE(transfer->destination, *m_tree / "Right");
    }

private:
    test::TestTree m_home;
    Preferences m_preferences{QString::fromStdString((m_home / "prefs.ini").string())};
    std::unique_ptr<test::TestTree> m_tree;
    std::unique_ptr<CommanderModel> m_model;
    std::unique_ptr<CommanderToolBar> m_toolBar;
    QStringList m_calls;
};

QTEST_MAIN(WindowBarsTest)
#include "tst_windowbars.moc"
