#include "tools/detail/editorinput.h"

#include "tools/detail/editorview.h"
#include "tools/detail/textmoves.h"

#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QScrollBar>

#include <algorithm>

namespace quillorn::detail {

bool EditorInput::takes(const QKeyEvent &key)
{
    const bool typed = !key.text().isEmpty() && key.text().front() >= QLatin1Char(' ') &&
                       !(key.modifiers() & (Qt::ControlModifier | Qt::MetaModifier));
    static const QKeySequence::StandardKey taken[] = {QKeySequence::Copy,
                                                      QKeySequence::Cut,
                                                      QKeySequence::Paste,
                                                      QKeySequence::Undo,
                                                      QKeySequence::Redo,
                                                      QKeySequence::SelectAll,
                                                      QKeySequence::DeleteStartOfWord,
                                                      QKeySequence::DeleteEndOfWord,
                                                      QKeySequence::MoveToNextWord,
                                                      QKeySequence::MoveToPreviousWord,
                                                      QKeySequence::MoveToStartOfDocument,
                                                      QKeySequence::MoveToEndOfDocument};
    return typed || std::any_of(std::begin(taken), std::end(taken), [&](auto k) { return key.matches(k); });
}

bool EditorInput::handle(const QKeyEvent &event)
{
    if (event.matches(QKeySequence::Copy))
        m_view.copy();
    else if (event.matches(QKeySequence::SelectAll))
        m_view.selectAll();
    else
        return move(event) || (!m_view.isReadOnly() && edit(event));
    return true;
}

bool EditorInput::move(const QKeyEvent &event)
{
    EditorView &view = m_view;
    struct Move {
        QKeySequence::StandardKey key;
        bool select;
        int action;
    };
    enum { left, right, wordLeft, wordRight, up, down, pageUp, pageDown, home, end, top, bottom };
    static const Move moves[] = {
        {QKeySequence::MoveToPreviousChar, false, left},
        {QKeySequence::SelectPreviousChar, true, left},
        {QKeySequence::MoveToNextChar, false, right},
        {QKeySequence::SelectNextChar, true, right},
        {QKeySequence::MoveToPreviousWord, false, wordLeft},
        {QKeySequence::SelectPreviousWord, true, wordLeft},
        {QKeySequence::MoveToNextWord, false, wordRight},
        {QKeySequence::SelectNextWord, true, wordRight},
        {QKeySequence::MoveToPreviousLine, false, up},
        {QKeySequence::SelectPreviousLine, true, up},
        {QKeySequence::MoveToNextLine, false, down},
        {QKeySequence::SelectNextLine, true, down},
        {QKeySequence::MoveToPreviousPage, false, pageUp},
        {QKeySequence::SelectPreviousPage, true, pageUp},
        {QKeySequence::MoveToNextPage, false, pageDown},
        {QKeySequence::SelectNextPage, true, pageDown},
        {QKeySequence::MoveToStartOfLine, false, home},
        {QKeySequence::SelectStartOfLine, true, home},
        {QKeySequence::MoveToEndOfLine, false, end},
        {QKeySequence::SelectEndOfLine, true, end},
        {QKeySequence::MoveToStartOfDocument, false, top},
        {QKeySequence::SelectStartOfDocument, true, top},
        {QKeySequence::MoveToEndOfDocument, false, bottom},
        {QKeySequence::SelectEndOfDocument, true, bottom},
    };
    const auto found = std::find_if(std::begin(moves), std::end(moves),
                                    [&](const Move &move) { return event.matches(move.key); });
    if (found == std::end(moves))
        return false;
    const bool keep = found->select;
    const QString &line = view.m_buffer.line(view.m_cursor.line);
    const qsizetype index =
        view.rowOf(view.m_cursor, view.m_atRowEnd) - view.m_rows.firstRow(view.m_cursor.line);
    switch (found->action) {
    case left:
        // Without Shift a selection collapses to its start, as in other text fields.
        view.setCursorPosition(view.hasSelection() && !keep ? view.selection().start
                                                            : previousCharacter(view.m_buffer, view.m_cursor),
                               keep);
        break;
    case right:
        view.setCursorPosition(view.hasSelection() && !keep ? view.selection().end
                                                            : nextCharacter(view.m_buffer, view.m_cursor),
                               keep);
        break;
    case wordLeft:
        view.setCursorPosition(previousWord(view.m_buffer, view.m_cursor), keep);
        break;
    case wordRight:
        view.setCursorPosition(nextWord(view.m_buffer, view.m_cursor), keep);
        break;
    case up:
    case down:
        view.moveRows(found->action == up ? -1 : 1, keep);
        break;
    case pageUp:
    case pageDown: {
        const qsizetype page =
            (found->action == pageUp ? -1 : 1) * std::max<qsizetype>(1, view.visibleRows() - 1);
        view.verticalScrollBar()->setValue(int(view.topRow() + page));
        view.moveRows(page, keep);
        break;
    }
    case home:
        view.setCursorPosition({view.m_cursor.line, view.m_rows.span(line, index).first}, keep);
        break;
    case end:
        view.setCursorAtRowEnd({view.m_cursor.line, view.m_rows.span(line, index).second}, keep);
        break;
    case top:
        view.setCursorPosition({}, keep);
        break;
    case bottom:
        view.setCursorPosition(view.m_buffer.end(), keep);
        break;
    }
    view.ensureCursorVisible();
    if (keep)
        view.updateSelectionClipboard();
    return true;
}

bool EditorInput::edit(const QKeyEvent &event)
{
    EditorView &view = m_view;
    if (event.matches(QKeySequence::Cut)) {
        view.cut();
    } else if (event.matches(QKeySequence::Paste)) {
        view.paste();
    } else if (event.matches(QKeySequence::Undo)) {
        view.undo();
    } else if (event.matches(QKeySequence::Redo)) {
        view.redo();
    } else if (event.matches(QKeySequence::DeleteStartOfWord)) {
        view.erase(previousWord(view.m_buffer, view.m_cursor), EditKind::other);
    } else if (event.matches(QKeySequence::DeleteEndOfWord)) {
        view.erase(nextWord(view.m_buffer, view.m_cursor), EditKind::other);
    } else if (event.matches(QKeySequence::InsertParagraphSeparator) ||
               event.matches(QKeySequence::InsertLineSeparator)) {
        view.insert(QStringLiteral("\n"));
    } else if (event.key() == Qt::Key_Backspace && !(event.modifiers() & ~Qt::ShiftModifier)) {
        view.erase(previousCodePoint(view.m_buffer, view.m_cursor), EditKind::deletingBackward);
    } else if (event.matches(QKeySequence::Delete)) {
        view.erase(nextCharacter(view.m_buffer, view.m_cursor), EditKind::deletingForward);
    } else {
        const QString text = event.text();
        // Ctrl with Alt is AltGr on some systems: its characters are typed text.
        const Qt::KeyboardModifiers held = event.modifiers();
        const bool command =
            (held & Qt::ControlModifier && !(held & Qt::AltModifier)) || (held & Qt::MetaModifier);
        const bool printable = !text.isEmpty() && std::all_of(text.begin(), text.end(), [](QChar c) {
            return c == QLatin1Char('\t') || (c.unicode() >= 0x20 && c.unicode() != 0x7f);
        });
        if (command || !printable)
            return false;
        view.insert(text, EditKind::typing);
    }
    return true;
}

bool EditorInput::compose(const QInputMethodEvent &event)
{
    EditorView &view = m_view;
    if (view.m_readOnly)
        return false;
    if (!event.commitString().isEmpty() || event.replacementLength() > 0) {
        if (event.replacementLength() > 0 && !view.hasSelection()) {
            const qsizetype size = view.m_buffer.line(view.m_cursor.line).size();
            const qsizetype from =
                std::clamp<qsizetype>(view.m_cursor.column + event.replacementStart(), 0, size);
            view.m_anchor = {view.m_cursor.line, from};
            view.m_cursor = {view.m_cursor.line, std::min(size, from + event.replacementLength())};
        }
        view.insert(event.commitString(), EditKind::typing);
    }
    view.m_preedit = event.preeditString();
    view.m_preeditCursor = int(view.m_preedit.size());
    for (const QInputMethodEvent::Attribute &attribute : event.attributes())
        if (attribute.type == QInputMethodEvent::Cursor)
            view.m_preeditCursor = attribute.start;
    view.viewport()->update();
    return true;
}

QVariant EditorInput::answer(const EditorView &view, Qt::InputMethodQuery query)
{
    // Around the cursor only: the surrounding text of a line of megabytes is a window of it.
    const QString &line = view.m_buffer.line(view.m_cursor.line);
    qsizetype from = std::max<qsizetype>(0, view.m_cursor.column - 500);
    if (from > 0 && line[from].isLowSurrogate())
        --from;
    const qsizetype to = std::min(line.size(), view.m_cursor.column + 500);
    switch (query) {
    case Qt::ImEnabled:
        return view.isEnabled() && !view.m_readOnly;
    case Qt::ImCursorRectangle:
        return view.cursorRect();
    case Qt::ImFont:
        return view.font();
    case Qt::ImCursorPosition:
        return int(view.m_cursor.column - from);
    case Qt::ImAnchorPosition:
        return int((view.m_anchor.line == view.m_cursor.line ? std::clamp(view.m_anchor.column, from, to)
                                                             : view.m_cursor.column) -
                   from);
    case Qt::ImSurroundingText:
        return QStringView(line).mid(from, to - from).toString();
    case Qt::ImTextBeforeCursor:
        return QStringView(line).mid(from, view.m_cursor.column - from).toString();
    case Qt::ImTextAfterCursor:
        return QStringView(line).mid(view.m_cursor.column, to - view.m_cursor.column).toString();
    case Qt::ImCurrentSelection:
        return view.selectedText();
    case Qt::ImAbsolutePosition:
        return qlonglong(view.m_buffer.offset(view.m_cursor));
    case Qt::ImHints:
        return int(view.inputMethodHints() | Qt::ImhMultiLine);
    default:
        return QVariant(); // the widget's own answer
    }
}

} // namespace quillorn::detail
