#include "tools/detail/editorview.h"

#include <QAccessible>
#include <QApplication>
#include <QClipboard>
#include <QInputMethodEvent>
#include <QTest>

using namespace quillorn::detail;

// The editor's text view driven by keys, the mouse and an input method, as a user would.
class EditorViewTest : public QObject {
    Q_OBJECT

    std::unique_ptr<EditorView> m_view;

    EditorView &show(const QString &text)
    {
        m_view = std::make_unique<EditorView>();
        m_view->resize(600, 300);
        m_view->buffer().setLines(TextBuffer::splitLines(text));
        m_view->show();
        m_view->activateWindow();
        m_view->setFocus();
        if (!QTest::qWaitForWindowActive(m_view.get()))
            qFatal("no active window");
        return *m_view;
    }

private Q_SLOTS:
    void cleanup() { m_view.reset(); }

    // A line of 10,000 characters is rows of the view's width; keys and
    // copies work on the one line, which never gains a break.
    void aLongLineIsRowsThatStayOneLine()
    {
        EditorView &view = show(QString(10'000, QLatin1Char('x')) + QStringLiteral("\nshort"));
        const RowMap &rows = view.rows();
        const qsizetype perRow = rows.span(view.buffer().line(0), 0).second;
        QVERIFY(perRow < 200 && rows.rowsOf(0) == (10'000 + perRow - 1) / perRow);

        QTest::keyClick(&view, Qt::Key_End); // the end of the first row, not the start of the second
        QCOMPARE(view.cursorPosition(), (TextPosition{0, perRow}));
        QCOMPARE(view.cursorRect().top(), 0);
        QTest::keyClicks(&view, "ab");
        QCOMPARE(view.buffer().line(0).mid(perRow - 1, 4), QStringLiteral("xabx"));
        QCOMPARE(view.buffer().lineCount(), 2);
        QTest::keyClick(&view, Qt::Key_Home);
        QTest::keyClick(&view, Qt::Key_Up);
        QCOMPARE(view.cursorPosition(), (TextPosition{0, 0}));
        QTest::keyClick(&view, Qt::Key_Down); // the second row of the same line
        QCOMPARE(view.cursorPosition(), (TextPosition{0, perRow}));
        QCOMPARE(view.cursorRect().top(), view.fontMetrics().lineSpacing());

        // Shift+Down across the cut selects one row's worth; the copy has no break in it.
        QTest::keyClick(&view, Qt::Key_Up);
        QTest::keyClick(&view, Qt::Key_Right, Qt::ShiftModifier);
        QTest::keyClick(&view, Qt::Key_Down, Qt::ShiftModifier);
        QTest::keyClick(&view, Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(QGuiApplication::clipboard()->text(), view.buffer().line(0).mid(0, perRow + 1));

        // Ctrl+End reaches the last line; the scroll bar took the view there.
        QTest::keyClick(&view, Qt::Key_End, Qt::ControlModifier);
        QCOMPARE(view.cursorPosition(), (TextPosition{1, 5}));
        QVERIFY(view.topRow() > 0);
        QTest::keyClick(&view, Qt::Key_Z, Qt::ControlModifier);
        QCOMPARE(view.buffer().line(0), QString(10'000, QLatin1Char('x')));
    }

    void typingEditingAndTheKeysItLeavesToTheSheet()
    {
        EditorView &view = show(QStringLiteral("a\rb\n\u00e9t\u00e9"));
        QTest::keyClick(&view, Qt::Key_Right);
        QTest::keyClick(&view, Qt::Key_Right); // past the carriage return, a character of its own
        QTest::keyClick(&view, Qt::Key_Tab);   // a tab, not the next widget
        QCOMPARE(view.buffer().line(0), QStringLiteral("a\r\tb"));
        QCOMPARE(QApplication::focusWidget(), &view);
        QTest::keyClick(&view, Qt::Key_Backspace);
        QTest::keyClick(&view, Qt::Key_Backspace);
        QTest::keyClick(&view, Qt::Key_Return);
        QCOMPARE(view.buffer().text(), QStringLiteral("a\nb\n\u00e9t\u00e9"));

        // An input method's composition stays out of the text until it commits.
        QInputMethodEvent compose(QStringLiteral("\u306b"), {});
        QApplication::sendEvent(&view, &compose);
        QCOMPARE(view.buffer().line(1), QStringLiteral("b"));
        QInputMethodEvent commit;
        commit.setCommitString(QStringLiteral("\u65e5\u672c"));
        QApplication::sendEvent(&view, &commit);
        QCOMPARE(view.buffer().line(1), QStringLiteral("\u65e5\u672cb"));
        QCOMPARE(view.inputMethodQuery(Qt::ImSurroundingText).toString(), QStringLiteral("\u65e5\u672cb"));
        QCOMPARE(view.inputMethodQuery(Qt::ImCursorPosition).toInt(), 2);

        // Escape and Ctrl+S go on to the sheet; so does typing while read-only.
        for (const QKeyCombination key :
             {QKeyCombination(Qt::Key_Escape), QKeyCombination(Qt::CTRL | Qt::Key_S)}) {
            QKeyEvent press(QEvent::KeyPress, key.key(), key.keyboardModifiers());
            QApplication::sendEvent(&view, &press);
            QVERIFY(!press.isAccepted());
        }
        view.setReadOnly(true);
        QTest::keyClicks(&view, "zz");
        QTest::keyClick(&view, Qt::Key_Left);
        QCOMPARE(view.buffer().line(1), QStringLiteral("\u65e5\u672cb"));
        QCOMPARE(view.cursorPosition(), (TextPosition{1, 1}));
    }

    void theMouseSetsTheCursorAndSelectsWords()
    {
        EditorView &view = show(QStringLiteral("first line\nsecond word here"));
        const int rowHeight = view.fontMetrics().lineSpacing();
        const QRect start = view.cursorRect();
        const int x = start.left() + 1 + view.fontMetrics().horizontalAdvance(QStringLiteral("second w"));
        QTest::mouseClick(view.viewport(), Qt::LeftButton, {}, QPoint(x, rowHeight + rowHeight / 2));
        QCOMPARE(view.cursorPosition(), (TextPosition{1, 8}));
        QTest::mouseDClick(view.viewport(), Qt::LeftButton, {}, QPoint(x, rowHeight + rowHeight / 2));
        QCOMPARE(view.selectedText(), QStringLiteral("word"));
        QTest::mouseClick(view.viewport(), Qt::LeftButton, Qt::ShiftModifier, QPoint(1, rowHeight / 2));
        QCOMPARE(view.selection(), (TextRange{{0, 0}, {1, 7}})); // from the word's start
    }

    void screenReadersReadAndEditTheText()
    {
        EditorView &view = show(QStringLiteral("first line\nsecond \u00e9 line"));
        QAccessibleInterface *shown = QAccessible::queryAccessibleInterface(&view);
        QVERIFY(shown && shown->role() == QAccessible::EditableText && shown->state().multiLine);
        QAccessibleTextInterface *text = shown->textInterface();
        QCOMPARE(text->characterCount(), 24);
        int start = 0;
        int end = 0;
        QCOMPARE(text->textAtOffset(3, QAccessible::LineBoundary, &start, &end),
                 QStringLiteral("first line\n"));
        QCOMPARE(text->textAfterOffset(3, QAccessible::LineBoundary, &start, &end),
                 QStringLiteral("second \u00e9 line"));
        QCOMPARE(text->textAtOffset(18, QAccessible::WordBoundary, &start, &end), QStringLiteral("\u00e9"));
        QCOMPARE(start, 18);
        QTest::keyClick(&view, Qt::Key_Down);
        QCOMPARE(text->cursorPosition(), 11);
        shown->editableTextInterface()->insertText(0, QStringLiteral("A "));
        QCOMPARE(view.buffer().line(0), QStringLiteral("A first line"));
    }
};

QTEST_MAIN(EditorViewTest)
#include "tst_editorview.moc"
