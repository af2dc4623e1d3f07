#include "model/commandertheme.h"
#include "model/commanderthemecolours.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"

#include "testtree.h"

#include <QObject>
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
        QCOMPARE(CommanderThemeKey::value(&grandchild), CommanderTheme::forest);
        CommanderThemeKey::set(&child, CommanderTheme::midnight);
        QCOMPARE(CommanderThemeKey::value(&grandchild), CommanderTheme::midnight);
        QCOMPARE(CommanderThemeKey::value(&root), CommanderTheme::forest);
    }

    void choicePrecedence_data()
    {
        QTest::addColumn<QVariant>("environment"); // invalid: unset
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<int>("expected");
        const QVariant none;
        const int navy = int(CommanderTheme::classicNavy);
        QTest::newRow("nothing") << none << none << navy;
        QTest::newRow("stored only") << none << QVariant("Forest") << int(CommanderTheme::forest);
        QTest::newRow("environment wins")
            << QVariant("Midnight") << QVariant("Forest") << int(CommanderTheme::midnight);
        QTest::newRow("lower-case environment falls back to stored")
            << QVariant("solarized dark") << QVariant("Aubergine") << int(CommanderTheme::aubergine);
        QTest::newRow("empty environment")
            << QVariant("") << QVariant("Arctic Night") << int(CommanderTheme::arctic);
        QTest::newRow("first word only") << QVariant("Solarized") << none << navy;
        QTest::newRow("case name") << none << QVariant("classicNavy") << navy;
        QTest::newRow("trailing space") << none << QVariant("Midnight ") << navy;
    }
    void choicePrecedence()
    {
        QFETCH(QVariant, environment);
        QFETCH(QVariant, stored);
        QFETCH(int, expected);
        auto optional = [](const QVariant &v) {
            return v.isValid() ? std::optional(v.toString()) : std::nullopt;
        };
        QCOMPARE(int(chooseCommanderTheme(optional(environment), optional(stored))), expected);
    }

    void choiceReadsTheEnvironmentAndTheStore()
    {
        test::TestTree tree;
        Preferences preferences(QString::fromStdString((tree / "prefs.ini").string()));
        preferences.setText(kThemePreferenceKey, "Slate & Rose");
        QCOMPARE(chooseCommanderTheme(preferences), CommanderTheme::slateRose);
        qputenv(kPreviewThemeVariable, "Deep Ocean");
        const CommanderTheme previewed = chooseCommanderTheme(preferences);
        qunsetenv(kPreviewThemeVariable);
        QCOMPARE(previewed, CommanderTheme::deepOcean);
    }
};

QTEST_GUILESS_MAIN(TestCommanderTheme)
#include "tst_commandertheme.moc"
