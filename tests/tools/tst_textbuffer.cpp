#include "tools/detail/rowmap.h"
#include "tools/detail/textbuffer.h"
#include "tools/detail/textmoves.h"

#include <QSignalSpy>
#include <QTest>

using namespace quillorn::detail;

// The editor's text as lines: edits, undo in runs, and the rows a long line is shown in.
class TextBufferTest : public QObject {
    Q_OBJECT

    static TextBuffer *buffer(const QString &text)
    {
        auto *made = new TextBuffer;
        made->setLines(TextBuffer::splitLines(text));
        return made;
    }

private Q_SLOTS:
    void editsTellWhatChangedAndUndoInRuns()
    {
        std::unique_ptr<TextBuffer> text(buffer(QStringLiteral("caf\u00e9\nline two")));
        QSignalSpy changes(text.get(), &TextBuffer::changed);
        // Typed one key at a time, then taken back by Backspace: two steps of undo.
        TextPosition at{0, 4};
        for (const QString key : {"!", "\n", "x"})
            at = text->replace({at, at}, key, EditKind::typing);
        QCOMPARE(text->text(), QStringLiteral("caf\u00e9!\nx\nline two"));
        QCOMPARE(at, (TextPosition{1, 1}));
        const TextPosition before = previousCodePoint(*text, at);
        text->replace({before, at}, QString(), EditKind::deletingBackward);
        QCOMPARE(changes.size(), 4);
        const auto last = changes.last().first().value<TextChange>();
        QCOMPARE(last.start, (TextPosition{1, 0}));
        QCOMPARE(last.removed, QStringLiteral("x"));
        QCOMPARE(text->offset({2, 3}), 5 + 1 + 0 + 1 + 3);
        QCOMPARE(text->position(8), (TextPosition{2, 1}));

        QCOMPARE(text->undo(), std::optional(TextPosition{1, 1}));
        QCOMPARE(text->text(), QStringLiteral("caf\u00e9!\nx\nline two"));
        QVERIFY(text->undo()); // the break and the x, typed in one run
        QCOMPARE(text->text(), QStringLiteral("caf\u00e9!\nline two"));
        QVERIFY(text->undo());
        QCOMPARE(text->text(), QStringLiteral("caf\u00e9\nline two"));
        QVERIFY(!text->canUndo());
        QCOMPARE(text->redo(), std::optional(TextPosition{0, 5}));
        QCOMPARE(text->redo(), std::optional(TextPosition{1, 1}));
        text->closeStep(); // the cursor moved: the next key starts a step of its own
        text->replace({{2, 0}, {2, 0}}, QStringLiteral("> "), EditKind::typing);
        QVERIFY(text->undo());
        QCOMPARE(text->text(), QStringLiteral("caf\u00e9!\nx\nline two"));

        // Several lines replaced as one step, and back.
        text->replaceLines({{0, QStringLiteral("A")}, {2, QStringLiteral("C")}});
        QCOMPARE(text->text(), QStringLiteral("A\nx\nC"));
        QVERIFY(text->undo());
        QCOMPARE(text->text(), QStringLiteral("caf\u00e9!\nx\nline two"));
    }

    void longLinesAreRowsOfTheirOwnCutBetweenCharacters()
    {
        RowMap rows;
        rows.setRowLength(100);
        // A short line, a long one of emoji (pairs of UTF-16 units), and a long
        // one whose cut would part an 'e' from its accent.
        QString emoji;
        for (int i = 0; i < 1200; ++i)
            emoji += QStringLiteral("\U0001F600");
        QString accents = QString(2099, QLatin1Char('e'));
        accents.insert(200, QChar(0x0301));
        const std::vector<QString> lines{QStringLiteral("short"), emoji, accents};
        rows.reset(lines);
        QCOMPARE(rows.rowsOf(0), 1);
        QCOMPARE(rows.rowsOf(1), 24);
        QCOMPARE(rows.rowsOf(2), 21);
        QCOMPARE(rows.rowCount(), 46);
        QCOMPARE(rows.lineOfRow(24), 1);
        QCOMPARE(rows.lineOfRow(25), 2);
        for (qsizetype index = 0; index < rows.rowsOf(1); ++index) {
            const auto [start, end] = rows.span(emoji, index);
            QVERIFY(!emoji[start].isLowSurrogate() && end > start);
            QCOMPARE(rows.rowIndexOf(emoji, start), index);
        }
        QCOMPARE(rows.span(accents, 2).first, 199); // before the e that takes the accent
        QCOMPARE(rows.span(accents, 1).second, 199);

        // A line that grows past the limit gains rows; the lines after it move down.
        std::vector<QString> grown = lines;
        grown[0] = QString(RowMap::longLine + 1, QLatin1Char('x'));
        rows.update(grown, 0, 1, 1);
        QCOMPARE(rows.rowsOf(0), 21);
        QCOMPARE(rows.firstRow(2), 21 + 24);
        grown.erase(grown.begin() + 1);
        rows.update(grown, 0, 2, 1);
        QCOMPARE(rows.rowCount(), 21 + 21);
    }

    void movesGoByCharactersAndWordsAcrossLines()
    {
        std::unique_ptr<TextBuffer> text(
            buffer(QStringLiteral("e\u0301t\u00e9 \U0001F469\u200d\U0001F4BB\nsnake_case, mot")));
        QCOMPARE(nextCharacter(*text, {0, 0}), (TextPosition{0, 2}));  // e with its accent
        QCOMPARE(nextCharacter(*text, {0, 5}), (TextPosition{0, 10})); // a whole emoji sequence
        QCOMPARE(previousCharacter(*text, {0, 10}), (TextPosition{0, 5}));
        QCOMPARE(previousCodePoint(*text, {0, 10}), (TextPosition{0, 8})); // one code point of it
        QCOMPARE(nextCharacter(*text, {0, 10}), (TextPosition{1, 0}));
        QCOMPARE(previousCharacter(*text, {1, 0}), (TextPosition{0, 10}));
        QCOMPARE(nextWord(*text, {1, 0}), (TextPosition{1, 10}));
        QCOMPARE(previousWord(*text, {1, 15}), (TextPosition{1, 12}));
        QCOMPARE(wordAt(*text, {0, 1}), (TextRange{{0, 0}, {0, 4}}));
    }
};

QTEST_GUILESS_MAIN(TextBufferTest)
#include "tst_textbuffer.moc"
