#include "app/applicationmenu.h"
#include "app/settingswindow.h"
#include "model/commanderthemecolours.h"
#include "platform/core/preferences.h"
#include "platform/desktop/updater.h"
#include "testtree.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QMainWindow>
#include <QMenuBar>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace quillorn;

// The settings window, the update settings and the menu command, against a
// real preferences file.
class SettingsWindowTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_tree = std::make_unique<test::TestTree>();
        m_iniPath = QString::fromStdString((*m_tree / "Quillorn.conf").string());
        m_preferences = std::make_unique<Preferences>(m_iniPath);
    }

    void cleanup()
    {
        m_preferences.reset();
        m_tree.reset();
    }

    void sectionsInOrderAndFixedWidth()
    {
        Updater updater(*m_preferences, true);
        SettingsWindow window(*m_preferences, updater);
        QCOMPARE(window.width(), 460);
        const auto groups = window.findChildren<QGroupBox *>();
        QCOMPARE(groups.size(), 2);
        QCOMPARE(groups[0]->title(), QStringLiteral("Appearance"));
        QCOMPARE(groups[1]->title(), QStringLiteral("Updates"));
        QCOMPARE(window.automaticChecks()->text(), QStringLiteral("Automatically check for updates"));
        QCOMPARE(window.automaticDownloads()->text(),
                 QStringLiteral("Automatically download and install updates"));
    }

    void themePickerListsTheTwelveThemesWithAccentSwatches()
    {
        Updater updater(*m_preferences, true);
        SettingsWindow window(*m_preferences, updater);
        QComboBox *picker = window.themePicker();
        QCOMPARE(picker->count(), 12);
        QCOMPARE(picker->itemText(0), QStringLiteral("Classic Navy"));
        QCOMPARE(picker->itemText(5), QStringLiteral("Graphite & Light Blue"));
        QCOMPARE(picker->itemText(11), QStringLiteral("Solarized Dark"));
        QCOMPARE(picker->currentIndex(), 0); // nothing stored yet
        const QImage swatch = picker->itemIcon(1).pixmap(10, 10).toImage();
        QCOMPARE(swatch.size(), QSize(10, 10));
        QCOMPARE(swatch.pixelColor(5, 5), colours(CommanderTheme::midnight).accent);
    }

    void choosingAThemeStoresItAndAnnouncesIt()
    {
        Updater updater(*m_preferences, true);
        SettingsWindow window(*m_preferences, updater);
        QSignalSpy chosen(&window, &SettingsWindow::themeChosen);
        window.themePicker()->setCurrentIndex(1);
        QCOMPARE(chosen.count(), 1);
        QCOMPARE(chosen.first().first().value<CommanderTheme>(), CommanderTheme::midnight);
        m_preferences->sync();
        QCOMPARE(Preferences(m_iniPath).text("appearance.theme"), QStringLiteral("Midnight"));
    }

    void thePickerStartsAtTheStoredThemeOrTheFirst()
    {
        Updater updater(*m_preferences, true);
        m_preferences->setText("appearance.theme", "Forest");
        QCOMPARE(SettingsWindow(*m_preferences, updater).themePicker()->currentText(),
                 QStringLiteral("Forest"));
        m_preferences->setText("appearance.theme", "forest");
        QCOMPARE(SettingsWindow(*m_preferences, updater).themePicker()->currentIndex(), 0);
    }

    void updateTogglesWriteThroughToTheUpdater()
    {
        Updater updater(*m_preferences, true);
        QVERIFY(!updater.automaticallyChecksForUpdates());
        SettingsWindow window(*m_preferences, updater);
        QVERIFY(!window.automaticChecks()->isChecked());
        window.automaticChecks()->setChecked(true);
        window.automaticDownloads()->setChecked(true);
        window.automaticDownloads()->setChecked(false);
        m_preferences->sync();
        Preferences reread(m_iniPath);
        QVERIFY(reread.boolean(Updater::automaticallyChecksKey));
        QVERIFY(reread.isBoolean(Updater::automaticallyDownloadsKey));
        QVERIFY(!reread.boolean(Updater::automaticallyDownloadsKey, true));

        Updater again(reread, false);
        QVERIFY(again.automaticallyChecksForUpdates());
        QVERIFY(SettingsWindow(reread, again).automaticChecks()->isChecked());
    }

    void anUpdaterNotStartedCannotCheck()
    {
        Updater updater(*m_preferences, false);
        QVERIFY(!updater.started());
        QVERIFY(!updater.canCheckForUpdates());
        QSignalSpy answered(&updater, &Updater::checkFinished);
        updater.checkForUpdates();
        QCOMPARE(answered.count(), 0);
        updater.start();
        QVERIFY(updater.canCheckForUpdates());
    }

    void checkForUpdatesFollowsTheApplicationItemAndTracksTheUpdater()
    {
        Updater updater(*m_preferences, false);
        QMainWindow window;
        int settingsShown = 0;
        ApplicationMenu menu(window, updater, [&] { ++settingsShown; });
        const QList<QAction *> items = window.menuBar()->actions().first()->menu()->actions();
        QCOMPARE(items[0]->text(), QStringLiteral("About Quillorn"));
        QCOMPARE(items[1]->text(), QStringLiteral("Check for Updates…"));
        QVERIFY(!menu.checkForUpdates()->isEnabled());

        updater.start();
        QVERIFY(menu.checkForUpdates()->isEnabled());
        window.show();
        menu.checkForUpdates()->trigger();
        QMessageBox *answer = menu.checkAnswer();
        QVERIFY(answer);
        QVERIFY(answer->text().contains(QStringLiteral("package manager")));
        QVERIFY(!menu.checkForUpdates()->isEnabled()); // one check on screen at a time
        answer->accept();
        QVERIFY(menu.checkForUpdates()->isEnabled());

        for (QAction *item : items)
            if (item->text() == QStringLiteral("Settings…"))
                item->trigger();
        QCOMPARE(settingsShown, 1);
    }

private:
    std::unique_ptr<test::TestTree> m_tree;
    QString m_iniPath;
    std::unique_ptr<Preferences> m_preferences;
};

QTEST_MAIN(SettingsWindowTest)
#include "tst_settingswindow.moc"
