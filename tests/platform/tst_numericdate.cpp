#include "platform/core/numericdate.h"

#include <QDateTime>
#include <QTest>

using namespace quillorn;

class TestNumericDate : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void numericPatternKeepsLocaleOrder_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QString>("expected");
        QTest::newRow("US") << QLocale(QLocale::English, QLocale::UnitedStates) << "03/07/2026";
        QTest::newRow("Germany") << QLocale(QLocale::German, QLocale::Germany) << "07.03.2026";
        QTest::newRow("Japan") << QLocale(QLocale::Japanese, QLocale::Japan) << "2026/03/07";
        QTest::newRow("UK") << QLocale(QLocale::English, QLocale::UnitedKingdom) << "07/03/2026";
        QTest::newRow("C") << QLocale::c() << "2026-03-07";
    }
    void numericPatternKeepsLocaleOrder()
    {
        QFETCH(QLocale, locale);
        QFETCH(QString, expected);
        const QDateTime local(QDate(2026, 3, 7), QTime(12, 0));
        const auto time =
            std::chrono::system_clock::time_point(std::chrono::milliseconds(local.toMSecsSinceEpoch()));
        QCOMPARE(formatNumericDate(time, locale), expected);
    }

    void patternIsNumericInEveryLocale()
    {
        for (const QLocale &locale :
             QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyCountry)) {
            const QString pattern = numericDatePattern(locale);
            QVERIFY2(pattern.contains("yyyy") && pattern.contains("MM") && pattern.contains("dd"),
                     qPrintable(locale.name() + ": " + pattern));
            QVERIFY2(!pattern.contains("MMM") && !pattern.contains("ddd") && !pattern.contains("yyyyy"),
                     qPrintable(locale.name() + ": " + pattern));
        }
    }

    void distantPastShowsYearOne()
    {
        const QString text = formatNumericDate(std::chrono::system_clock::time_point::min(),
                                               QLocale(QLocale::English, QLocale::UnitedStates));
        QCOMPARE(text, "01/01/0001");
    }
};

QTEST_GUILESS_MAIN(TestNumericDate)
#include "tst_numericdate.moc"
