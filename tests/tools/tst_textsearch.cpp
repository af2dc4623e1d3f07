#include "tools/detail/textsearch.h"

#include <QTest>

using namespace quillorn::detail;

// Find and replace in the editor's text, in scripts beyond ASCII.
class TextSearchTest : public QObject {
    Q_OBJECT

    static std::unique_ptr<TextBuffer> text(const QString &contents)
    {
        auto made = std::make_unique<TextBuffer>();
        made->setLines(TextBuffer::splitLines(contents));
        return made;
    }

private Q_SLOTS:
    void findsWithEachOptionBothWaysAndAroundTheEnd_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::addColumn<bool>("matchCase");
        QTest::addColumn<bool>("wholeWords");
        QTest::addColumn<bool>("expression");
        QTest::addColumn<QList<int>>("forward"); // offsets of the matches from the start, in order
        // The text: "École école ÉCOLES\nΣοφία σοφία 😀 école"
        QTest::newRow("any case") << QStringLiteral("école") << false << false << false
                                  << QList<int>{0, 6, 12, 34};
        QTest::newRow("match case") << QStringLiteral("école") << true << false << false << QList<int>{6, 34};
        QTest::newRow("whole words") << QStringLiteral("ÉCOLE") << false << true << false
                                     << QList<int>{0, 6, 34};
        QTest::newRow("Greek, any case")
            << QStringLiteral("ΣΟΦΊΑ") << false << false << false << QList<int>{19, 25};
        QTest::newRow("emoji") << QStringLiteral("😀") << true << false << false << QList<int>{31};
        QTest::newRow("expression") << QStringLiteral("\\p{Lu}\\w+") << true << false << true
                                    << QList<int>{0, 12, 19};
        QTest::newRow("empty matches skipped")
            << QStringLiteral("x*") << false << false << true << QList<int>{};
    }

    void findsWithEachOptionBothWaysAndAroundTheEnd()
    {
        QFETCH(QString, pattern);
        QFETCH(bool, matchCase);
        QFETCH(bool, wholeWords);
        QFETCH(bool, expression);
        QFETCH(QList<int>, forward);
        const auto contents =
            text(QStringLiteral("\u00c9cole \u00e9cole \u00c9COLES\n\u03a3\u03bf\u03c6\u03af\u03b1 "
                                "\u03c3\u03bf\u03c6\u03af\u03b1 \U0001F600 \u00e9cole"));
        const TextSearch search({pattern, matchCase, wholeWords, expression});
        QVERIFY(search.isValid());
        QList<int> found;
        TextPosition from;
        for (int i = 0; i < forward.size() + 1; ++i) {
            const std::optional<TextRange> match = search.find(*contents, from, false);
            if (!match)
                break;
            found << int(contents->offset(match->start));
            from = match->end;
        }
        // Round once and back to the first.
        QCOMPARE(found, forward.isEmpty() ? QList<int>{} : forward + QList<int>{forward.front()});
        if (forward.isEmpty())
            return;
        QList<int> backward;
        from = contents->end();
        for (int i = 0; i < forward.size(); ++i) {
            const std::optional<TextRange> match = search.find(*contents, from, true);
            backward.prepend(int(contents->offset(match->start)));
            from = match->start;
        }
        QCOMPARE(backward, forward);
    }

    void replacesOneOrAllAsOneStep()
    {
        const auto contents = text(QStringLiteral("na\u00efve caf\u00e9, CAF\u00c9\ncaf\u00e9s"));
        const TextSearch words({QStringLiteral("caf\u00e9"), false, true, false});
        // One: only where the selection is a match.
        QCOMPARE(words.replacement(*contents, {{0, 6}, {0, 10}}, QStringLiteral("th\u00e9")),
                 std::optional<QString>(QStringLiteral("th\u00e9")));
        QVERIFY(!words.replacement(*contents, {{0, 5}, {0, 10}}, QStringLiteral("th\u00e9")));
        qsizetype count = 0;
        contents->replaceLines(words.replaceAll(*contents, QStringLiteral("th\u00e9"), &count));
        QCOMPARE(count, 2);
        QCOMPARE(contents->text(), QStringLiteral("na\u00efve th\u00e9, th\u00e9\ncaf\u00e9s"));
        QVERIFY(contents->undo());
        QCOMPARE(contents->text(), QStringLiteral("na\u00efve caf\u00e9, CAF\u00c9\ncaf\u00e9s"));

        // Groups of an expression: \1, \0, and a backslash as itself.
        const TextSearch groups({QStringLiteral("(\\w+)\u00e9"), true, false, true});
        contents->replaceLines(groups.replaceAll(*contents, QStringLiteral("[\\1|\\0|\\\\]"), &count));
        QCOMPARE(count, 2);
        QCOMPARE(contents->text(),
                 QStringLiteral("na\u00efve [caf|caf\u00e9|\\], CAF\u00c9\n[caf|caf\u00e9|\\]s"));
        QCOMPARE(TextSearch({QStringLiteral("(unclosed"), false, false, true}).error().isEmpty(), false);
    }
};

QTEST_GUILESS_MAIN(TextSearchTest)
#include "tst_textsearch.moc"
