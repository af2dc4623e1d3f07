#include "platform/core/preferences.h"
#include "testtree.h"

#include <QTest>
#include <fstream>

using namespace quillorn;
using quillorn::test::TestTree;

class PreferencesTest : public QObject {
    Q_OBJECT

private:
    static QString iniPath(const TestTree &tree)
    {
        return QString::fromStdString((tree / "prefs.conf").string());
    }

    static void writeFile(const TestTree &tree, const std::string &contents)
    {
        std::ofstream(tree / "prefs.conf", std::ios::binary) << contents;
    }

private Q_SLOTS:
    void missingKeysGiveTheDefaults()
    {
        TestTree tree;
        Preferences preferences(iniPath(tree));
        QCOMPARE(preferences.stringList("a.tabs", {"x"}), QStringList{"x"});
        QCOMPARE(preferences.integer("a.tabIndex", 4), 4);
        QCOMPARE(preferences.text("a.sort", "Name"), QString("Name"));
        QCOMPARE(preferences.boolean("a.hidden", true), true);
        QVERIFY(!preferences.isBoolean("a.ascending"));
        QVERIFY(!preferences.contains("a.tabs"));
    }

    void valuesSurviveAReopenWithTheirTypes()
    {
        TestTree tree;
        {
            Preferences preferences(iniPath(tree));
            preferences.setStringList("p.none", {});
            preferences.setStringList("p.one", {"/a, b"});
            preferences.setStringList("p.two", {"/x y", "/\"quoted\",comma;semicolon"});
            preferences.setInteger("p.index", -2);
            preferences.setText("p.sort", "Size");
            preferences.setText("p.folder", "/with, comma; and \"quotes\"");
            preferences.setBoolean("p.hidden", true);
            preferences.setBoolean("p.ascending", false);
            preferences.sync();
        }
        Preferences reopened(iniPath(tree));
        QCOMPARE(reopened.stringList("p.none", {"fallback"}).value(0, "fallback"), QString("fallback"));
        QCOMPARE(reopened.stringList("p.one"), QStringList{"/a, b"});
        QCOMPARE(reopened.stringList("p.two"), (QStringList{"/x y", "/\"quoted\",comma;semicolon"}));
        QCOMPARE(reopened.integer("p.index", 9), -2);
        QCOMPARE(reopened.text("p.sort"), QString("Size"));
        QCOMPARE(reopened.text("p.folder"), QString("/with, comma; and \"quotes\""));
        QVERIFY(reopened.isBoolean("p.hidden"));
        QCOMPARE(reopened.boolean("p.hidden", false), true);
        QVERIFY(reopened.isBoolean("p.ascending"));
        QCOMPARE(reopened.boolean("p.ascending", true), false);
    }

    void booleanTextCountsOnlyWhenItIsTrueOrFalse()
    {
        TestTree tree;
        writeFile(tree, "[General]\nyes=true\nno=false\nshouting=TRUE\nnumber=1\nword=maybe\n");
        Preferences preferences(iniPath(tree));
        QVERIFY(preferences.isBoolean("yes"));
        QVERIFY(preferences.boolean("yes", false));
        QVERIFY(preferences.isBoolean("no"));
        QVERIFY(!preferences.boolean("no", true));
        for (const char *key : {"shouting", "number", "word"}) {
            QVERIFY2(!preferences.isBoolean(key), key);
            QCOMPARE(preferences.boolean(key, true), true);
            QCOMPARE(preferences.boolean(key, false), false);
        }
    }

    void wrongTypesFallBackToTheDefaults()
    {
        TestTree tree;
        writeFile(tree,
                  "[General]\nindex=seven\nfraction=2.5\nbig=99999999999999\nlist=@Variant(\\0\\0\\0\\x7f)\n"
                  "rect=@Rect(1 2 3 4)\nsize=@Size(1 2)\n");
        Preferences preferences(iniPath(tree));
        QCOMPARE(preferences.integer("index", 3), 3);
        QCOMPARE(preferences.integer("fraction", 3), 3);
        QCOMPARE(preferences.integer("big", 3), 3);
        QCOMPARE(preferences.stringList("rect", {"d"}), QStringList{"d"});
        QCOMPARE(preferences.text("size", "d"), QString("d"));
        QCOMPARE(preferences.integer("rect", 5), 5);
        QVERIFY(!preferences.isBoolean("rect"));
        // Whatever the broken variant decodes to, reading it must not crash.
        (void)preferences.stringList("list");
        (void)preferences.text("list");
    }

    void aFileOfGarbageReadsAsEmpty()
    {
        TestTree tree;
        std::string garbage = "\x01\x02\xff\xfe[[[\n=\n==x\n[unterminated\nkey\n\x80\x81=\x00\x7f\n";
        garbage += std::string(5000, '\xc3');
        writeFile(tree, garbage);
        Preferences preferences(iniPath(tree));
        QCOMPARE(preferences.integer("left.tabIndex", 0), 0);
        QCOMPARE(preferences.stringList("left.tabs"), QStringList{});
        QVERIFY(!preferences.isBoolean("left.ascending"));
    }
};

QTEST_GUILESS_MAIN(PreferencesTest)
#include "tst_preferences.moc"
