#include "tools/detail/editortext.h"
#include "tools/detail/textbuffer.h"

#include <QRandomGenerator>
#include <QTest>

using namespace quillorn::detail;

// What the editor shows of a file and what it hands back: every text comes
// back exactly, with the byte count of what it stands for.
class EditorTextTest : public QObject {
    Q_OBJECT

    // Through the editor's lines, as a file is loaded and saved unedited.
    static QString roundTrip(const QString &text, qsizetype *bytes = nullptr)
    {
        const EditorText lines = EditorText::forText(text);
        const QString shown = lines.shown(text);
        TextBuffer buffer;
        buffer.setLines(TextBuffer::viewLines(shown), shown); // as the sheet loads a file
        if (bytes)
            *bytes = lines.utf8Bytes(buffer.text());
        return lines.taken(buffer.text());
    }

private Q_SLOTS:
    void givesBackEveryTextExactlyAndCountsItsBytes_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("lines"); // as the editor shows them
        QTest::newRow("empty") << QString() << 1;
        QTest::newRow("line feeds") << QStringLiteral("one\ntwo\n\n") << 4;
        QTest::newRow("CR LF lines, byte order mark") << QStringLiteral("\ufeffone\r\ntwo\r\n") << 3;
        QTest::newRow("lines ending in CR alone") << QStringLiteral("one\rtwo\r") << 3;
        QTest::newRow("lone CRs among line feeds") << QStringLiteral("a\rb\r\nc\n") << 3;
        QTest::newRow("CR LF with a lone LF") << QStringLiteral("a\r\nb\nc") << 3;
        QTest::newRow("the CR mark beside a lone CR") << QStringLiteral("a\u240db\rc\n") << 2;
        QTest::newRow("paragraph and line separators") << QStringLiteral("a\u2029b\u2028c") << 1;
        QTest::newRow("noncharacters U+FDD0, U+FDD1") << QStringLiteral("a\ufdd0b\ufdd1c\n") << 2;
        QTest::newRow("controls, no-break space, emoji")
            << QStringLiteral("\x01\t\x7f\u00a0\U0001F469\u200d\U0001F4BB\ufffc") << 1;
    }

    void givesBackEveryTextExactlyAndCountsItsBytes()
    {
        QFETCH(QString, text);
        QFETCH(int, lines);
        qsizetype bytes = 0;
        QCOMPARE(roundTrip(text, &bytes), text);
        QCOMPARE(bytes, text.toUtf8().size());
        const EditorText editor = EditorText::forText(text);
        QCOMPARE(qsizetype(TextBuffer::splitLines(editor.shown(text)).size()), qsizetype(lines));
    }

    // Random texts of the characters a text widget would change, mixed with
    // ordinary ones: each comes back unchanged.
    void randomTextsOfAwkwardCharactersComeBackExactly()
    {
        const QString alphabet = QStringLiteral("a\r\n\u2028\u2029\ufdd0\ufdd1\u240d\u00e9\ufeff\t ") +
                                 QStringLiteral("\U0001F600");
        QRandomGenerator random(20);
        for (int round = 0; round < 3000; ++round) {
            QString text;
            const int length = random.bounded(40);
            for (int i = 0; i < length; ++i) {
                const int pick = random.bounded(int(alphabet.size()) - 1);
                text += alphabet[pick].isHighSurrogate() ? alphabet.mid(pick, 2) : QString(alphabet[pick]);
            }
            qsizetype bytes = 0;
            const QString back = roundTrip(text, &bytes);
            QVERIFY2(back == text, qPrintable(QString::fromLatin1(text.toUtf8().toHex())));
            QCOMPARE(bytes, text.toUtf8().size());
        }
    }

    void pastedLineBreaksBecomeTheFilesOwn()
    {
        const QString pasted = QStringLiteral("x\r\ny\rz\n");
        QCOMPARE(EditorText::forText(u"a\nb").pasted(pasted), QStringLiteral("x\ny\rz\n"));
        QCOMPARE(EditorText::forText(u"a\r\nb").pasted(pasted), QStringLiteral("x\ny\rz\n"));
        QCOMPARE(EditorText::forText(u"a\rb").pasted(pasted), QStringLiteral("x\ny\nz\n"));
        // And are saved as the file's: a pasted line in a CR LF file ends in CR LF.
        const EditorText crlf = EditorText::forText(u"a\r\nb");
        QCOMPARE(crlf.taken(crlf.pasted(pasted)), QStringLiteral("x\r\ny\rz\r\n"));
    }
};

QTEST_GUILESS_MAIN(EditorTextTest)
#include "tst_editortext.moc"
