#include "platform/core/collation.h"
#include "platform/core/inotifywatch.h"
#include "platform/core/numericdate.h"
#include "platform/core/preferences.h"
#include "testtree.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QTest>
#include <fstream>

using namespace quillorn;
using quillorn::test::TestTree;
namespace fs = std::filesystem;

// Collation, dates, preferences and folder watching: the QtCore side of the platform layer.
class PlatformCoreTest : public QObject {
    Q_OBJECT

    static QString iniPath(const TestTree &tree) { return QString::fromStdString(tree / "prefs.conf"); }

private Q_SLOTS:
    void collationOrdersNumbersByValueAndIgnoresCase_data()
    {
        QTest::addColumn<QString>("locale");
        for (const char *locale : {"", "C", "C.UTF-8", "POSIX", "en-US", "zz-not-a-locale!!"})
            QTest::newRow(locale) << QString(locale);
    }
    void collationOrdersNumbersByValueAndIgnoresCase()
    {
        QFETCH(QString, locale);
        const Collation collation(locale);
        QVERIFY(collation.compare("file2.txt", "file10.txt") < 0);
        QVERIFY(collation.sortKey("a9") < collation.sortKey("a10"));
        QCOMPARE(collation.sortKey("Docs"), collation.sortKey("docs"));
        QVERIFY(collation.compare("resume", QString::fromUtf8("résumé")) < 0);
        QVERIFY(collation.compare(QString::fromUtf8("résumé"), "rf") < 0);
        // Whatever LANG says, including C, where QCollator loses this.
        QVERIFY(Collation().compare("x2", "x11") < 0);
    }

    void collationKeysAgreeWithCompareAndReplaceInvalidUtf8()
    {
        const Collation collation(QStringLiteral("en-US"));
        const QStringList names{"b",  "A", "a10", "a9", "Ä",     "_x",    "1",
                                "10", "",  "ß",   "ss", "Émile", "émile2"};
        for (const QString &a : names)
            for (const QString &b : names) {
                const int byCompare = collation.compare(a, b);
                const std::string ka = collation.sortKey(a), kb = collation.sortKey(b);
                QVERIFY2((byCompare < 0) == (ka < kb) && (byCompare == 0) == (ka == kb),
                         qPrintable(a + " vs " + b));
            }
        std::string packed;
        const std::size_t first = collation.appendSortKey("Photo 12", packed);
        collation.appendSortKey(std::string_view("bad\xff\xfe name", 10), packed);
        QCOMPARE(packed.substr(0, first), collation.sortKey("Photo 12"));
        QCOMPARE(packed.substr(first), collation.sortKey(QString::fromUtf8("bad\uFFFD\uFFFD name")));
    }

    void numericDateKeepsTheLocaleOrderInEveryLocale()
    {
        using std::chrono::system_clock;
        const system_clock::time_point noon(
            std::chrono::milliseconds(QDateTime(QDate(2026, 3, 7), QTime(12, 0)).toMSecsSinceEpoch()));
        const QLocale us(QLocale::English, QLocale::UnitedStates);
        QCOMPARE(formatNumericDate(noon, us), "03/07/2026");
        QCOMPARE(formatNumericDate(noon, QLocale(QLocale::German, QLocale::Germany)), "07.03.2026");
        QCOMPARE(formatNumericDate(noon, QLocale(QLocale::Japanese, QLocale::Japan)), "2026/03/07");
        QCOMPARE(formatNumericDate(noon, QLocale::c()), "2026-03-07");
        QCOMPARE(formatNumericDate(system_clock::time_point::min(), us), "01/01/0001");
        for (const QLocale &locale :
             QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyCountry)) {
            const QString pattern = numericDatePattern(locale);
            QVERIFY2(pattern.count("yyyy") == 1 && pattern.count("MM") == 1 && pattern.count("dd") == 1 &&
                         !pattern.contains("yyyyy"),
                     qPrintable(locale.name() + ": " + pattern));
        }
    }

    void preferencesSurviveAReopenWithTheirTypes()
    {
        TestTree tree;
        const QStringList awkward{"/x y", "/\"quoted\",comma;semicolon"};
        {
            Preferences preferences(iniPath(tree));
            preferences.setStringList("p.none", {});
            preferences.setStringList("p.one", {"/a, b"});
            preferences.setStringList("p.two", awkward);
            preferences.setInteger("p.index", -2);
            preferences.setText("p.folder", awkward.last());
            preferences.setBoolean("p.ascending", false);
            preferences.sync();
        }
        Preferences reopened(iniPath(tree));
        QCOMPARE(reopened.stringList("p.none", {"fallback"}).value(0, "fallback"), "fallback");
        QCOMPARE(reopened.stringList("p.one"), QStringList{"/a, b"});
        QCOMPARE(reopened.stringList("p.two"), awkward);
        QCOMPARE(reopened.integer("p.index", 9), -2);
        QCOMPARE(reopened.text("p.folder"), awkward.last());
        QVERIFY(reopened.isBoolean("p.ascending"));
        QCOMPARE(reopened.boolean("p.ascending", true), false);
        QVERIFY(!reopened.contains("p.missing"));
        QCOMPARE(reopened.integer("p.missing", 4), 4);
    }

    void preferencesOfTheWrongTypeOrGarbageGiveTheDefaults()
    {
        TestTree tree;
        std::ofstream(tree / "prefs.conf", std::ios::binary)
            << "[General]\nyes=true\nshouting=TRUE\nnumber=1\nindex=seven\nfraction=2.5\nbig=99999999999999\n"
               "rect=@Rect(1 2 3 "
               "4)\nlist=@Variant(\\0\\0\\0\\x7f)\n\x01\xff[[[\n=\n==x\n[unterminated\n\x80=\x7f\n"
            << std::string(5000, '\xc3');
        Preferences preferences(iniPath(tree));
        QVERIFY(preferences.isBoolean("yes") && preferences.boolean("yes", false));
        for (const char *key : {"shouting", "number", "rect"}) {
            QVERIFY2(!preferences.isBoolean(key), key);
            QCOMPARE(preferences.boolean(key, true), true);
        }
        for (const char *key : {"index", "fraction", "big", "rect"})
            QVERIFY2(preferences.integer(key, 3) == 3, key);
        QCOMPARE(preferences.stringList("rect", {"d"}), QStringList{"d"});
        // Whatever the broken variant decodes to, reading it must not crash.
        (void)preferences.stringList("list");
        (void)preferences.text("list");
    }

    void watchReportsChangesToTheFolderEntriesOnly()
    {
        TestTree tree;
        // A name that is not UTF-8, which a QString path would mangle.
        const fs::path folder = tree.folder(std::string("caf\xe9-\xff"));
        tree.file(folder / "old.txt", "x");
        tree.folder(folder / "sub");
        InotifyWatch watch(InotifyWatch::open(folder));
        QSignalSpy spy(&watch, &InotifyWatch::changed);

        const std::function<void()> changes[] = {
            [&] { tree.file(folder / std::string("n\xe9w")); },
            [&] { fs::rename(folder / "old.txt", folder / "renamed.txt"); },
            [&] { fs::remove(folder / "renamed.txt"); },
            [&] { fs::permissions(folder / "sub", fs::perms::owner_all); },
        };
        for (const auto &change : changes) {
            spy.clear();
            change();
            QVERIFY(spy.wait());
        }
        spy.clear();
        tree.file(folder / "sub/deep.txt");
        QVERIFY(!spy.wait(250));
    }

    void watchOpenFailsWithTheSystemError()
    {
        TestTree tree;
        for (const auto &[path, code] :
             {std::pair(tree / "missing", ENOENT), std::pair(tree.file("f"), ENOTDIR)}) {
            try {
                InotifyWatch::open(path);
                QFAIL("no error");
            } catch (const std::system_error &error) {
                QCOMPARE(error.code().value(), code);
            }
        }
    }
};

QTEST_GUILESS_MAIN(PlatformCoreTest)
#include "tst_core.moc"
