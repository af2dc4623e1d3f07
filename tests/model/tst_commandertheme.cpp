#include "model/commandertheme.h"
#include "model/commanderthemecolours.h"
#include "model/themechoice.h"
#include "platform/core/preferences.h"

#include "testtree.h"

#include <QObject>
#include <QTest>

using namespace quillorn;

namespace {

struct ScopedEnvironment {
    explicit ScopedEnvironment(const char *name, const QByteArray &value) : m_name(name)
    {
        qputenv(m_name, value);
    }
    ~ScopedEnvironment() { qunsetenv(m_name); }
    const char *m_name;
};

} // namespace

class TestCommanderTheme : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void allThemesAreTwelveInPickerOrder()
    {
        QCOMPARE(allCommanderThemes.size(), std::size_t(12));
        QCOMPARE(allCommanderThemes.front(), CommanderTheme::classicNavy);
        QCOMPARE(allCommanderThemes.back(), CommanderTheme::solarized);
        const QStringList names{"Classic Navy",      "Midnight",         "Cappuccino",
                                "Graphite & Orange", "Graphite & Green", "Graphite & Light Blue",
                                "Deep Ocean",        "Aubergine",        "Forest",
                                "Slate & Rose",      "Arctic Night",     "Solarized Dark"};
        for (std::size_t i = 0; i < allCommanderThemes.size(); ++i)
            QCOMPARE(rawValue(allCommanderThemes[i]), names[int(i)]);
    }

    void fromRawValue_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("expected"); // -1: no theme
        QTest::newRow("exact") << "Graphite & Light Blue" << int(CommanderTheme::graphiteSky);
        QTest::newRow("arctic") << "Arctic Night" << int(CommanderTheme::arctic);
        QTest::newRow("lower case") << "graphite & light blue" << -1;
        QTest::newRow("first word only") << "Solarized" << -1;
        QTest::newRow("case name is not a raw value") << "classicNavy" << -1;
        QTest::newRow("trailing space") << "Midnight " << -1;
        QTest::newRow("empty") << "" << -1;
    }
    void fromRawValue()
    {
        QFETCH(QString, text);
        QFETCH(int, expected);
        const auto theme = commanderThemeFromRawValue(text);
        if (expected < 0)
            QVERIFY(!theme);
        else
            QCOMPARE(int(theme.value()), expected);
    }

    void rawValuesRoundTrip()
    {
        for (CommanderTheme theme : allCommanderThemes)
            QCOMPARE(commanderThemeFromRawValue(rawValue(theme)), std::optional(theme));
    }

    void paletteChannelsAreExact()
    {
        const CommanderThemeColours navy = colours(CommanderTheme::classicNavy);
        QCOMPARE(int(navy.accent.red), 91);
        QCOMPARE(int(navy.accent.green), 207);
        QCOMPARE(int(navy.accent.blue), 250);
        QCOMPARE(navy.window, (ThemeColour{0x11, 0x1D, 0x36}));
        QCOMPARE(navy.border, (ThemeColour{0x55, 0x82, 0xAE}));

        const CommanderThemeColours solarized = colours(CommanderTheme::solarized);
        QCOMPARE(solarized.window, (ThemeColour{0x00, 0x2B, 0x36}));
        QCOMPARE(solarized.accent, (ThemeColour{0xB5, 0x89, 0x00}));
        QCOMPARE(colours(CommanderTheme::graphiteOrange).selection, (ThemeColour{0x84, 0x47, 0x1E}));
        QCOMPARE(colours(CommanderTheme::aubergine).alternateRow, (ThemeColour{0x52, 0x35, 0x55}));
        QCOMPARE(colours(CommanderTheme::arctic).row, (ThemeColour{0x3A, 0x4B, 0x59}));
        QCOMPARE(colours(CommanderTheme::forest).button, (ThemeColour{0x39, 0x56, 0x47}));
        QCOMPARE(colours(CommanderTheme::midnight).pane, (ThemeColour{0x17, 0x1B, 0x2E}));
        QCOMPARE(colours(CommanderTheme::deepOcean).bar, (ThemeColour{0x12, 0x42, 0x4E}));
    }

    void everyThemeHasItsOwnPalette()
    {
        for (CommanderTheme theme : allCommanderThemes) {
            const CommanderThemeColours c = colours(theme);
            for (CommanderTheme other : allCommanderThemes)
                if (other != theme)
                    QVERIFY(!(colours(other) == c));
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
        QTest::newRow("nothing") << none << none << int(CommanderTheme::classicNavy);
        QTest::newRow("stored only") << none << QVariant("Forest") << int(CommanderTheme::forest);
        QTest::newRow("environment wins")
            << QVariant("Midnight") << QVariant("Forest") << int(CommanderTheme::midnight);
        QTest::newRow("bad environment falls back to stored")
            << QVariant("solarized dark") << QVariant("Aubergine") << int(CommanderTheme::aubergine);
        QTest::newRow("both bad") << QVariant("Solarized") << QVariant("nope")
                                  << int(CommanderTheme::classicNavy);
        QTest::newRow("empty environment")
            << QVariant("") << QVariant("Arctic Night") << int(CommanderTheme::arctic);
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

    void choiceReadsEnvironmentAndStore()
    {
        test::TestTree tree;
        Preferences preferences(QString::fromStdString((tree / "prefs.ini").string()));
        QCOMPARE(chooseCommanderTheme(preferences), CommanderTheme::classicNavy);
        preferences.setText(kThemePreferenceKey, "Slate & Rose");
        QCOMPARE(chooseCommanderTheme(preferences), CommanderTheme::slateRose);
        {
            ScopedEnvironment env(kPreviewThemeVariable, "Deep Ocean");
            QCOMPARE(chooseCommanderTheme(preferences), CommanderTheme::deepOcean);
        }
        {
            ScopedEnvironment env(kPreviewThemeVariable, "Deep");
            QCOMPARE(chooseCommanderTheme(preferences), CommanderTheme::slateRose);
        }
        preferences.setText(kThemePreferenceKey, "slate & rose");
        QCOMPARE(chooseCommanderTheme(preferences), CommanderTheme::classicNavy);
    }
};

QTEST_GUILESS_MAIN(TestCommanderTheme)
#include "tst_commandertheme.moc"
