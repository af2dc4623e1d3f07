#include "model/commandertheme.h"
#include "model/commanderthemecolours.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QTest>

using namespace quillorn;

class TestCommanderTheme : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // The names are stored in preferences and given in the environment: they must not drift.
    void themesKeepTheirPickerOrderNamesAndOwnPalettes()
    {
        const QStringList names{"Classic Navy",      "Midnight",         "Cappuccino",
                                "Graphite & Orange", "Graphite & Green", "Graphite & Light Blue",
                                "Deep Ocean",        "Aubergine",        "Forest",
                                "Slate & Rose",      "Arctic Night",     "Solarized Dark"};
        QCOMPARE(allCommanderThemes.size(), std::size_t(names.size()));
        for (std::size_t i = 0; i < allCommanderThemes.size(); ++i) {
            QCOMPARE(rawValue(allCommanderThemes[i]), names[int(i)]);
            QCOMPARE(commanderThemeFromRawValue(names[int(i)]), std::optional(allCommanderThemes[i]));
            for (std::size_t j = 0; j < i; ++j)
                QVERIFY(!(colours(allCommanderThemes[j]) == colours(allCommanderThemes[i])));
        }
    }

    void themeKeyDefaultsAndInherits()
    {
        QObject root;
        QObject child(&root);
        QObject grandchild(&child);
        QCOMPARE(CommanderThemeKey::value(&grandchild), CommanderTheme::classicNavy);
        CommanderThemeKey::set(&root, CommanderTheme::forest);
        CommanderThemeKey::set(&child, CommanderTheme::midnight);
        QCOMPARE(CommanderThemeKey::value(&grandchild), CommanderTheme::midnight);
        QCOMPARE(CommanderThemeKey::value(&root), CommanderTheme::forest);
    }

    void choice_data()
    {
        QTest::addColumn<QByteArray>("environment"); // null: unset
        QTest::addColumn<QString>("stored");         // null: none
        QTest::addColumn<CommanderTheme>("expected");
        const CommanderTheme navy = CommanderTheme::classicNavy;
        QTest::newRow("stored") << QByteArray() << QString("Slate & Rose") << CommanderTheme::slateRose;
        QTest::newRow("bad environment")
            << QByteArray("Solarized") << QString("Forest") << CommanderTheme::forest;
        QTest::newRow("case name") << QByteArray("forest") << QString("classicNavy") << navy;
        QTest::newRow("trailing space") << QByteArray() << QString("Midnight ") << navy;
    }
    void choice()
    {
        QFETCH(QByteArray, environment);
        QFETCH(QString, stored);
        QFETCH(CommanderTheme, expected);
        test::TestTree tree;
        Preferences preferences(QString::fromStdString((tree / "prefs.ini").string()));
        if (!stored.isNull())
            preferences.setText(kThemePreferenceKey, stored);
        if (!environment.isNull())
            qputenv(kPreviewThemeVariable, environment);
        const CommanderTheme chosen = chooseCommanderTheme(preferences);
        qunsetenv(kPreviewThemeVariable);
        QCOMPARE(chosen, expected);
    }
};

QTEST_GUILESS_MAIN(TestCommanderTheme)
#include "tst_commandertheme.moc"
