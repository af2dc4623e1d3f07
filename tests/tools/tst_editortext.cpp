#include "tools/detail/editortext.h"

#include <QPlainTextEdit>
#include <QTest>
#include <QTextDocument>

using namespace quillorn::detail;

// What the editor shows of a file and what it hands back, through a real text
// widget: the bytes saved unedited are the bytes loaded, or the file is refused.
class EditorTextTest : public QObject {
    Q_OBJECT

    // The file's text after a trip through the widget, or none when refused.
    static std::optional<QString> roundTrip(QPlainTextEdit &editor, const QString &text)
    {
        const std::optional<EditorText> lines = EditorText::forText(text);
        if (!lines)
            return std::nullopt;
        EditorText::fill(&editor, lines->shown(text));
        return lines->taken(EditorText::contents(&editor));
    }

private Q_SLOTS:
    void givesBackEveryAcceptedTextExactlyAndCountsItsBytes_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("line feeds") << QStringLiteral("one\ntwo\n\n") << true;
        QTest::newRow("CR LF lines") << QStringLiteral("\ufeffone\r\ntwo\r\n") << true;
        QTest::newRow("lone carriage returns") << QStringLiteral("a\rb\r\nc\n") << true;
        QTest::newRow("no-break, line separator, emoji")
            << QStringLiteral("a\u00a0b\u2028c \U0001F600 \ufffc") << true;
        QTest::newRow("CR LF with a lone LF") << QStringLiteral("a\r\nb\nc") << true;
        QTest::newRow("the CR symbol itself, no CR") << QStringLiteral("a\u240db\r\n") << true;
        QTest::newRow("the CR symbol beside a lone CR") << QStringLiteral("a\u240db\rc") << false;
        QTest::newRow("paragraph separator") << QStringLiteral("a\u2029b") << false;
        QTest::newRow("frame marks") << QStringLiteral("a\ufdd0b\ufdd1c") << false;
    }

    void givesBackEveryAcceptedTextExactlyAndCountsItsBytes()
    {
        QFETCH(QString, text);
        QFETCH(bool, accepted);
        QPlainTextEdit editor;
        const std::optional<QString> back = roundTrip(editor, text);
        QCOMPARE(back.has_value(), accepted);
        if (!back)
            return;
        QCOMPARE(*back, text);
        const std::optional<EditorText> lines = EditorText::forText(text);
        QCOMPARE(lines->utf8Bytes(lines->shown(text)), text.toUtf8().size());
        // Loaded is not an edit: nothing to undo, the cursor at the start.
        QVERIFY(!editor.document()->isUndoAvailable());
        QCOMPARE(editor.textCursor().position(), 0);
    }

    // The editor only skips reading a loaded file back because forText knows
    // every character the widget changes. Any character, alone and between
    // lines, either comes back unchanged or is refused.
    void refusesExactlyTheCharactersTheWidgetWouldChange()
    {
        QPlainTextEdit editor;
        QTextDocument plain; // unguarded: what the widget does to the text
        QList<char16_t> changed;
        for (char32_t unit = 1; unit < 0x10000; ++unit) {
            if (QChar::isSurrogate(unit))
                continue;
            const QString text = QStringLiteral("a") + QChar(char16_t(unit)) + QStringLiteral("b\nc");
            plain.setPlainText(text);
            if (plain.toRawText().replace(QChar::ParagraphSeparator, QLatin1Char('\n')) != text)
                changed << char16_t(unit);
            const std::optional<QString> back = roundTrip(editor, text);
            QVERIFY2(!back || *back == text, qPrintable(QString::number(unit, 16)));
        }
        // Guarded by forText: CR through its own handling, the rest refused.
        QCOMPARE(changed, (QList<char16_t>{u'\r', 0x2029, 0xfdd0, 0xfdd1}));
        for (const char16_t unit : {char16_t(0x2029), char16_t(0xfdd0), char16_t(0xfdd1)})
            QVERIFY(!EditorText::forText(QStringLiteral("x") + QChar(unit)));
    }
};

QTEST_MAIN(EditorTextTest)
#include "tst_editortext.moc"
