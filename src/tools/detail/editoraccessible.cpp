#include "tools/detail/editoraccessible.h"

#include "tools/detail/editorview.h"

#include <QTextBoundaryFinder>

#include <algorithm>

namespace quillorn::detail {

EditorAccessible::EditorAccessible(EditorView *view) : QAccessibleWidget(view, QAccessible::EditableText)
{
}

QAccessibleInterface *EditorAccessible::create(const QString &, QObject *object)
{
    if (auto *view = qobject_cast<EditorView *>(object))
        return new EditorAccessible(view);
    return nullptr;
}

EditorView *EditorAccessible::view() const
{
    return static_cast<EditorView *>(widget());
}

void *EditorAccessible::interface_cast(QAccessible::InterfaceType type)
{
    if (type == QAccessible::TextInterface)
        return static_cast<QAccessibleTextInterface *>(this);
    if (type == QAccessible::EditableTextInterface)
        return static_cast<QAccessibleEditableTextInterface *>(this);
    return QAccessibleWidget::interface_cast(type);
}

QAccessible::State EditorAccessible::state() const
{
    QAccessible::State state = QAccessibleWidget::state();
    state.editable = !view()->isReadOnly();
    state.readOnly = view()->isReadOnly();
    state.multiLine = true;
    state.selectableText = true;
    return state;
}

QString EditorAccessible::text(QAccessible::Text kind) const
{
    // The value would be the whole text, megabytes of it: readers take it through the text interface.
    return kind == QAccessible::Value ? QString() : QAccessibleWidget::text(kind);
}

void EditorAccessible::selection(int selectionIndex, int *startOffset, int *endOffset) const
{
    *startOffset = *endOffset = 0;
    if (selectionIndex != 0 || !view()->hasSelection())
        return;
    const TextRange range = view()->selection();
    *startOffset = int(view()->buffer().offset(range.start));
    *endOffset = int(view()->buffer().offset(range.end));
}

int EditorAccessible::selectionCount() const
{
    return view()->hasSelection() ? 1 : 0;
}

void EditorAccessible::addSelection(int startOffset, int endOffset)
{
    setSelection(0, startOffset, endOffset);
}

void EditorAccessible::removeSelection(int selectionIndex)
{
    if (selectionIndex == 0)
        view()->setCursorPosition(view()->cursorPosition());
}

void EditorAccessible::setSelection(int selectionIndex, int startOffset, int endOffset)
{
    if (selectionIndex != 0)
        return;
    const TextBuffer &text = view()->buffer();
    view()->setCursorPosition(text.position(startOffset));
    view()->setCursorPosition(text.position(endOffset), true);
}

int EditorAccessible::cursorPosition() const
{
    return int(view()->buffer().offset(view()->cursorPosition()));
}

void EditorAccessible::setCursorPosition(int position)
{
    view()->setCursorPosition(view()->buffer().position(position));
}

QString EditorAccessible::text(int startOffset, int endOffset) const
{
    const TextBuffer &text = view()->buffer();
    return text.text({text.position(startOffset), text.position(endOffset)});
}

std::pair<int, int> EditorAccessible::pieceAt(int offset, QAccessible::TextBoundaryType boundary) const
{
    const TextBuffer &text = view()->buffer();
    const TextPosition at = text.position(offset);
    const qsizetype lineStart = text.offset({at.line, 0});
    const QString &line = text.line(at.line);
    if (boundary == QAccessible::NoBoundary)
        return {0, characterCount()};
    if (boundary == QAccessible::LineBoundary || boundary == QAccessible::ParagraphBoundary)
        return {int(lineStart), int(lineStart + line.size() + 1)};
    if (at.column >= line.size()) // the line break, a character of its own
        return {offset, offset + 1};
    const QTextBoundaryFinder::BoundaryType type =
        boundary == QAccessible::CharBoundary   ? QTextBoundaryFinder::Grapheme
        : boundary == QAccessible::WordBoundary ? QTextBoundaryFinder::Word
                                                : QTextBoundaryFinder::Sentence;
    // A window of the line around the offset is enough for any of these.
    const qsizetype from = std::max<qsizetype>(0, at.column - 2000);
    const qsizetype to = std::min(line.size(), at.column + 2000);
    QTextBoundaryFinder finder(type, line.constData() + from, int(to - from));
    finder.setPosition(int(at.column - from));
    const qsizetype start = finder.isAtBoundary() ? finder.position() : finder.toPreviousBoundary();
    finder.setPosition(int(at.column - from));
    const qsizetype end = finder.toNextBoundary();
    return {int(lineStart + from + std::max<qsizetype>(start, 0)),
            int(lineStart + from + (end < 0 ? to - from : end))};
}

QString EditorAccessible::textAtOffset(int offset, QAccessible::TextBoundaryType boundary, int *startOffset,
                                       int *endOffset) const
{
    const auto [start, end] = pieceAt(std::clamp(offset, 0, std::max(characterCount() - 1, 0)), boundary);
    *startOffset = start;
    *endOffset = std::min(end, characterCount());
    return text(*startOffset, *endOffset);
}

QString EditorAccessible::textBeforeOffset(int offset, QAccessible::TextBoundaryType boundary,
                                           int *startOffset, int *endOffset) const
{
    const int here = pieceAt(std::clamp(offset, 0, characterCount()), boundary).first;
    if (here <= 0) {
        *startOffset = *endOffset = 0;
        return QString();
    }
    return textAtOffset(here - 1, boundary, startOffset, endOffset);
}

QString EditorAccessible::textAfterOffset(int offset, QAccessible::TextBoundaryType boundary,
                                          int *startOffset, int *endOffset) const
{
    const int next = pieceAt(std::clamp(offset, 0, characterCount()), boundary).second;
    if (next >= characterCount()) {
        *startOffset = *endOffset = characterCount();
        return QString();
    }
    return textAtOffset(next, boundary, startOffset, endOffset);
}

int EditorAccessible::characterCount() const
{
    return int(view()->buffer().length());
}

QRect EditorAccessible::characterRect(int offset) const
{
    const QRect rect = view()->characterRect(view()->buffer().position(offset));
    return QRect(view()->viewport()->mapToGlobal(rect.topLeft()), rect.size());
}

int EditorAccessible::offsetAtPoint(const QPoint &point) const
{
    const QPoint local = view()->viewport()->mapFromGlobal(point);
    return int(view()->buffer().offset(view()->positionAtPoint(local)));
}

void EditorAccessible::scrollToSubstring(int startIndex, int endIndex)
{
    const TextBuffer &text = view()->buffer();
    view()->select({text.position(startIndex), text.position(endIndex)});
}

QString EditorAccessible::attributes(int offset, int *startOffset, int *endOffset) const
{
    *startOffset = *endOffset = offset;
    return QString();
}

void EditorAccessible::deleteText(int startOffset, int endOffset)
{
    replaceText(startOffset, endOffset, QString());
}

void EditorAccessible::insertText(int offset, const QString &text)
{
    replaceText(offset, offset, text);
}

void EditorAccessible::replaceText(int startOffset, int endOffset, const QString &text)
{
    if (view()->isReadOnly())
        return;
    const TextBuffer &buffer = view()->buffer();
    view()->setCursorPosition(buffer.position(startOffset));
    view()->setCursorPosition(buffer.position(endOffset), true);
    view()->insert(text);
}

} // namespace quillorn::detail
