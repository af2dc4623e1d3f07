#include "model/commanderthemecolours.h"
#include "model/themechoice.h"

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

    void theEnvironmentWinsOnlyWithAnExactName()
    {
        QCOMPARE(chooseCommanderTheme(QString("Midnight"), QString("Forest")), CommanderTheme::midnight);
        for (const char *inexact : {"midnight", "Midnight ", "Solarized", "classicNavy", ""})
            QCOMPARE(chooseCommanderTheme(QString(inexact), QString("Forest")), CommanderTheme::forest);
        QCOMPARE(chooseCommanderTheme(std::nullopt, QString("forest")), CommanderTheme::classicNavy);
    }
};

QTEST_GUILESS_MAIN(TestCommanderTheme)
#include "tst_commandertheme.moc"
