#include "platform/core/collation.h"
#include "platform/core/displaytext.h"
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
using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

// Collation, dates, preferences and folder watching: the QtCore side of the platform layer.
class PlatformCoreTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void collationOrdersNumbersByValueIgnoringCaseButNotAccentsAndKeysAgree()
    {
        const QStringList names{"b",  "A", "a10", "a9", "Ä",     "_x",    "1",
                                "10", "",  "ß",   "ss", "Émile", "émile2"};
        for (const char *locale : {"", "C", "C.UTF-8", "POSIX", "en-US", "zz-not-a-locale!!"}) {
            const Collation collation(locale);
            QVERIFY2(collation.compare("file2.txt", "file10.txt") < 0 &&
                         collation.compare("Docs", "docs") == 0 &&
                         collation.compare("resume", "résumé") < 0 && collation.compare("résumé", "rf") < 0,
                     locale);
            for (const QString &a : names)
                for (const QString &b : names) {
                    const int byCompare = collation.compare(a, b);
                    const std::string ka = collation.sortKey(a), kb = collation.sortKey(b);
                    QVERIFY2((byCompare < 0) == (ka < kb) && (byCompare == 0) == (ka == kb),
                             qPrintable(locale + (": " + a) + " vs " + b));
                }
        }
        // Whatever LANG says, including C, where QCollator loses this.
        QVERIFY(Collation().compare("x2", "x11") < 0);
        std::string key;
        Collation().appendSortKey(std::string_view("bad\xff\xfe name", 10), key);
        QCOMPARE(key, Collation().sortKey(QString::fromUtf8("bad\uFFFD\uFFFD name")));
    }

    void editableNamesStandForTheirBytesExactly_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("editable"); // the text a prompt shows for it
        QTest::newRow("plain") << QByteArray("notes.txt") << u"notes.txt"_s;
        QTest::newRow("UTF-8") << QByteArray("caf\xc3\xa9 \xf0\x9f\x98\x80 \xee\xbe\x80")
                               << u"café 😀 \uef80"_s;
        QTest::newRow("stray bytes") << QByteArray("bad\xff\xfename") << u"bad\xdcff\xdcfename"_s;
        QTest::newRow("Latin-1") << QByteArray("caf\xe9.txt") << u"caf\xdce9.txt"_s;
        QTest::newRow("cut short") << QByteArray("a\xe2\x82") << u"a\xdce2\xdc82"_s;
        QTest::newRow("overlong /") << QByteArray("\xc0\xaf") << u"\xdcc0\xdcaf"_s;
        // A surrogate written as UTF-8 is no character, so its bytes are placeholders too.
        QTest::newRow("surrogate") << QByteArray("\xed\xb3\xbf") << u"\xdced\xdcb3\xdcbf"_s;
        QTest::newRow("past U+10FFFF") << QByteArray("\xf4\x90\x80\x80") << u"\xdcf4\xdc90\xdc80\xdc80"_s;
        QTest::newRow("emoji then a stray byte") << QByteArray("\xf0\x9f\x98\x80\x80") << u"😀\xdc80"_s;
    }

    void editableNamesStandForTheirBytesExactly()
    {
        QFETCH(QByteArray, name);
        QFETCH(QString, editable);
        const fs::path path(name.toStdString());
        QCOMPARE(editableText(path), editable);
        QCOMPARE(QByteArray::fromStdString(pathFromEditableText(editable).native()), name);
        // What the user types is UTF-8, next to bytes kept as they were.
        const QString typed = editable + u"é"_s;
        QCOMPARE(QByteArray::fromStdString(pathFromEditableText(typed).native()), name + "\xc3\xa9");
        // Half a pair that stands for no byte has no UTF-8 form: it is written as U+FFFD.
        for (const char16_t half : {u'\xd800', u'\xdc7f'})
            QCOMPARE(pathFromEditableText(editable + QChar(half)),
                     fs::path(name.toStdString() + "\xef\xbf\xbd"));
    }

    void numericDateKeepsTheLocaleOrderInEveryLocale()
    {
        const std::chrono::system_clock::time_point noon(
            std::chrono::milliseconds(QDateTime(QDate(2026, 3, 7), QTime(12, 0)).toMSecsSinceEpoch()));
        const QLocale us(QLocale::English, QLocale::UnitedStates);
        QCOMPARE(formatNumericDate(noon, us), "03/07/2026");
        QCOMPARE(formatNumericDate(noon, QLocale(QLocale::German, QLocale::Germany)), "07.03.2026");
        QCOMPARE(formatNumericDate(noon, QLocale::c()), "2026-03-07");
        QCOMPARE(formatNumericDate(noon.min(), us), "01/01/0001");
        for (const QLocale &locale :
             QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyCountry)) {
            const QString pattern = numericDatePattern(locale);
            QVERIFY2(pattern.count("yyyy") == 1 && pattern.count("MM") == 1 && pattern.count("dd") == 1 &&
                         !pattern.contains("yyyyy"),
                     qPrintable(locale.name() + ": " + pattern));
        }
    }

    void preferencesKeepTheirTypesAndGarbageGivesTheDefaults()
    {
        TestTree tree;
        const QString path = QString::fromStdString(tree / "prefs.conf");
        const QStringList awkward{"/x y", "/\"quoted\",comma;semicolon"};
        {
            Preferences preferences(path);
            preferences.setStringList("p.one", {"/a, b"});
            preferences.setStringList("p.two", awkward);
            preferences.setInteger("p.index", -2);
            preferences.setText("p.folder", awkward.last());
            preferences.setBoolean("p.ascending", false);
        }
        Preferences reopened(path);
        QCOMPARE(reopened.stringList("p.one"), QStringList{"/a, b"});
        QCOMPARE(reopened.stringList("p.two"), awkward);
        QCOMPARE(reopened.integer("p.index", 9), -2);
        QCOMPARE(reopened.text("p.folder"), awkward.last());
        QVERIFY(reopened.isBoolean("p.ascending") && !reopened.boolean("p.ascending", true));

        std::ofstream(tree / "garbage.conf", std::ios::binary)
            << "[General]\nyes=true\nshouting=TRUE\nnumber=1\nindex=seven\nfraction=2.5\nbig=99999999999999\n"
            << "rect=@Rect(1 2 3 4)\nlist=@Variant(\\0\\0\\0\\x7f)\n"
            << "\x01\xff[[[\n=\n==x\n[unterminated\n\x80=\x7f\n"
            << std::string(5000, '\xc3');
        Preferences garbage(QString::fromStdString(tree / "garbage.conf"));
        QVERIFY(garbage.isBoolean("yes") && garbage.boolean("yes", false));
        for (const char *key : {"shouting", "number", "rect"})
            QVERIFY2(!garbage.isBoolean(key) && garbage.boolean(key, true), key);
        for (const char *key : {"index", "fraction", "big", "rect"})
            QVERIFY2(garbage.integer(key, 3) == 3, key);
        QCOMPARE(garbage.stringList("rect", {"d"}), QStringList{"d"});
        // Whatever the broken variant decodes to, reading it must not crash.
        (void)garbage.stringList("list");
        (void)garbage.text("list");
    }

    void watchReportsChangesToTheFolderEntriesOnlyAndOpenFailsWithTheSystemError()
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
        for (const auto &[path, code] :
             {std::pair(folder / "missing", ENOENT), std::pair(folder / "sub/deep.txt", ENOTDIR)}) {
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
