#include "platform/core/collation.h"

#include <QTest>
#include <algorithm>
#include <vector>

using namespace quillorn;

class CollationTest : public QObject {
    Q_OBJECT

private:
    static QStringList sortedByKeys(const Collation &collation, QStringList names)
    {
        std::stable_sort(names.begin(), names.end(), [&](const QString &a, const QString &b) {
            return collation.sortKey(a) < collation.sortKey(b);
        });
        return names;
    }

private Q_SLOTS:
    void numbersCompareByValue_data()
    {
        QTest::addColumn<QString>("locale");
        QTest::newRow("C") << "C";
        QTest::newRow("C.UTF-8") << "C.UTF-8";
        QTest::newRow("POSIX") << "POSIX";
        QTest::newRow("empty") << "";
        QTest::newRow("en-US") << "en-US";
        QTest::newRow("de-DE") << "de-DE";
        QTest::newRow("nonsense") << "zz-not-a-locale!!";
    }

    void numbersCompareByValue()
    {
        QFETCH(QString, locale);
        const Collation collation(locale);
        QVERIFY(collation.compare("a9", "a10") < 0);
        QVERIFY(collation.compare("file2.txt", "file10.txt") < 0);
        QCOMPARE(sortedByKeys(collation, {"a10", "a9", "a100", "a1"}),
                 (QStringList{"a1", "a9", "a10", "a100"}));
    }

    void letterCaseIsIgnored()
    {
        const Collation collation(QStringLiteral("C"));
        QCOMPARE(collation.compare("readme", "README"), 0);
        QCOMPARE(collation.sortKey("Docs"), collation.sortKey("docs"));
        QCOMPARE(sortedByKeys(collation, {"Zeta", "alpha", "Beta"}), (QStringList{"alpha", "Beta", "Zeta"}));
    }

    void accentsStillCount()
    {
        const Collation collation(QStringLiteral("C"));
        QVERIFY(collation.compare("resume", QString::fromUtf8("résumé")) != 0);
        QVERIFY(collation.compare(QString::fromUtf8("résumé"), "rf") < 0);
    }

    void keysAgreeWithCompare()
    {
        const Collation collation(QStringLiteral("en-US"));
        const QStringList names{"b", "A",  "a10", "a9", "Ä",  "z",     "_x",
                                "1", "10", "",    "ß",  "ss", "Émile", "émile2"};
        for (const QString &a : names)
            for (const QString &b : names) {
                const int byCompare = collation.compare(a, b);
                const std::string ka = collation.sortKey(a), kb = collation.sortKey(b);
                const int byKeys = ka < kb ? -1 : (kb < ka ? 1 : 0);
                QVERIFY2((byCompare < 0) == (byKeys < 0) && (byCompare == 0) == (byKeys == 0),
                         qPrintable(a + " vs " + b));
            }
    }

    void appendedKeysMatchKeysOfText()
    {
        const Collation collation(QStringLiteral("C"));
        std::string packed;
        const std::size_t first = collation.appendSortKey("Photo 12", packed);
        const std::size_t second = collation.appendSortKey("photo 3", packed);
        QCOMPARE(packed.substr(0, first), collation.sortKey("Photo 12"));
        QCOMPARE(packed.substr(first, second), collation.sortKey("photo 3"));
    }

    void invalidUtf8OrdersAsTheReplacementCharacter()
    {
        const Collation collation(QStringLiteral("C"));
        std::string key;
        collation.appendSortKey(std::string_view("bad\xff\xfe name", 10), key);
        QCOMPARE(key, collation.sortKey(QString::fromUtf8("bad\uFFFD\uFFFD name")));
    }

    void theUserLocaleOrdersNumbersByValue()
    {
        // Whatever LANG says, including C and C.UTF-8, where QCollator loses this.
        QVERIFY(Collation().compare("x2", "x11") < 0);
    }
};

QTEST_GUILESS_MAIN(CollationTest)
#include "tst_collation.moc"
