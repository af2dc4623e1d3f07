#include "tools/detail/editorview.h"

#include "tools/detail/syntaxhighlighting.h"
#include "tools/detail/textmoves.h"

#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QKeyEvent>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QStyleHints>
#include <QTextLine>

#include <algorithm>
#include <cmath>

namespace quillorn::detail {

namespace {

// The label drawn for a character that a layout would not draw as it is: a
// break of its own, nothing at all, or a square. Fonts seldom hold the
// control pictures, so the label is drawn by the view.
QString markFor(char16_t unit)
{
    if (unit == u'\r')
        return QStringLiteral("CR");
    if (unit < 0x20 && unit != u'\t')
        return QLatin1Char('^') + QChar(unit + 0x40); // ^A, ^[: caret notation
    switch (unit) {
    case 0x7f:
        return QStringLiteral("^?");
    case 0x2028:
        return QStringLiteral("LS");
    case 0x2029:
        return QStringLiteral("PS");
    case 0xfdd0:
        return QStringLiteral("FDD0");
    case 0xfdd1:
        return QStringLiteral("FDD1");
    default:
        return QString();
    }
}

// Where a change leaves a position that was in the text before it.
TextPosition shifted(TextPosition position, const TextChange &change)
{
    if (position <= change.start)
        return position;
    const TextPosition removedEnd = TextBuffer::endOf(change.start, change.removed);
    if (position < removedEnd)
        return change.start;
    const TextPosition insertedEnd = TextBuffer::endOf(change.start, change.inserted);
    if (position.line == removedEnd.line)
        return {insertedEnd.line, insertedEnd.column + position.column - removedEnd.column};
    return {position.line + insertedEnd.line - removedEnd.line, position.column};
}

quint64 rowKey(qsizetype line, qsizetype index)
{
    return (quint64(line) << 24) | quint64(index);
}

} // namespace

// The line numbers beside the text; a row that continues its line gets a mark instead.
class EditorView::Margin : public QWidget {
public:
    explicit Margin(EditorView *view) : QWidget(view), m_view(view) {}

protected:
    void paintEvent(QPaintEvent *event) override { m_view->paintMargin(event, this); }
    void mousePressEvent(QMouseEvent *event) override { event->ignore(); }

private:
    EditorView *m_view;
};

EditorView::EditorView(QWidget *parent) : QAbstractScrollArea(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_InputMethodEnabled);
    viewport()->setCursor(Qt::IBeamCursor);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_margin = new Margin(this);
    m_markFormat.setForeground(palette().color(QPalette::PlaceholderText));
    connect(&m_buffer, &TextBuffer::changed, this, &EditorView::textChanged);
    connect(&m_buffer, &TextBuffer::reset, this, &EditorView::textReset);
    textReset();
}

EditorView::~EditorView() = default;

void EditorView::setHighlighting(SyntaxHighlighting *highlighting)
{
    if (m_highlighting)
        m_highlighting->disconnect(this);
    m_highlighting = highlighting;
    if (highlighting)
        connect(highlighting, &SyntaxHighlighting::linesChanged, this, &EditorView::forgetRows);
    m_layouts.clear();
    viewport()->update();
}

void EditorView::setSyntaxColours(const std::array<QColor, syntaxKindCount> &colours, const QColor &marks)
{
    for (std::size_t i = 0; i < colours.size(); ++i)
        m_syntaxFormats[i].setForeground(colours[i]);
    m_markFormat.setForeground(marks);
    m_layouts.clear();
    viewport()->update();
    m_margin->update();
}

void EditorView::setReadOnly(bool readOnly)
{
    m_readOnly = readOnly;
    setAttribute(Qt::WA_InputMethodEnabled, !readOnly);
}

TextRange EditorView::selection() const
{
    return m_anchor < m_cursor ? TextRange{m_anchor, m_cursor} : TextRange{m_cursor, m_anchor};
}

void EditorView::setCursorPosition(TextPosition position, bool keepAnchor)
{
    m_buffer.closeStep();
    const TextPosition before = m_cursor;
    m_cursor = m_buffer.clamp(position);
    if (!keepAnchor)
        m_anchor = m_cursor;
    m_atRowEnd = false;
    m_wantedX = -1;
    restartBlink();
    viewport()->update();
    m_margin->update();
    if (before != m_cursor)
        Q_EMIT cursorMoved();
}

void EditorView::setCursorAtRowEnd(TextPosition position, bool keepAnchor)
{
    setCursorPosition(position, keepAnchor);
    const QString &line = m_buffer.line(m_cursor.line);
    const qsizetype index = m_rows.rowIndexOf(line, m_cursor.column);
    m_atRowEnd = index > 0 && m_rows.span(line, index).first == m_cursor.column;
}

void EditorView::select(TextRange range)
{
    setCursorPosition(range.start);
    setCursorPosition(range.end, true);
    ensureCursorVisible(true);
}

void EditorView::insert(const QString &text, EditKind kind)
{
    if (m_readOnly)
        return;
    const TextPosition end = m_buffer.replace(selection(), text, kind);
    m_cursor = m_anchor = end;
    m_atRowEnd = false;
    m_wantedX = -1;
    ensureCursorVisible();
    restartBlink();
    Q_EMIT cursorMoved();
}

void EditorView::erase(TextPosition to, EditKind kind)
{
    if (m_readOnly)
        return;
    if (hasSelection()) {
        insert(QString());
        return;
    }
    m_anchor = to;
    insert(QString(), kind);
}

void EditorView::undo()
{
    if (const std::optional<TextPosition> at = m_readOnly ? std::nullopt : m_buffer.undo()) {
        setCursorPosition(*at);
        ensureCursorVisible();
    }
}

void EditorView::redo()
{
    if (const std::optional<TextPosition> at = m_readOnly ? std::nullopt : m_buffer.redo()) {
        setCursorPosition(*at);
        ensureCursorVisible();
    }
}

void EditorView::copy() const
{
    if (hasSelection())
        QGuiApplication::clipboard()->setText(selectedText());
}

void EditorView::cut()
{
    if (m_readOnly || !hasSelection())
        return;
    copy();
    insert(QString());
}

void EditorView::paste()
{
    QString text = QGuiApplication::clipboard()->text();
    if (m_pasteFilter)
        text = m_pasteFilter(std::move(text));
    if (!text.isEmpty())
        insert(text);
}

void EditorView::selectAll()
{
    setCursorPosition({});
    setCursorPosition(m_buffer.end(), true);
    updateSelectionClipboard();
}

qsizetype EditorView::topRow() const
{
    return verticalScrollBar()->value();
}

qsizetype EditorView::visibleRows() const
{
    return std::max(1, viewport()->height() / rowHeight());
}

int EditorView::rowHeight() const
{
    return std::max(1, fontMetrics().lineSpacing());
}

int EditorView::textLeft() const
{
    return fontMetrics().horizontalAdvance(QLatin1Char(' ')) / 2 + 2;
}

int EditorView::marginWidth() const
{
    const int digits = int(std::log10(double(std::max<qsizetype>(m_buffer.lineCount(), 1)))) + 1;
    return fontMetrics().horizontalAdvance(QLatin1Char('9')) * (std::max(digits, 3) + 2);
}

const EditorView::Row &EditorView::row(qsizetype line, qsizetype index)
{
    const quint64 key = rowKey(line, index);
    if (const auto found = m_layouts.find(key); found != m_layouts.end())
        return *found->second;
    if (m_layouts.size() > 2048)
        m_layouts.clear();
    auto made = std::make_unique<Row>();
    const QString &text = m_buffer.line(line);
    const auto [start, end] = m_rows.span(text, index);
    made->text = text.mid(start, end - start);

    QList<QTextLayout::FormatRange> formats;
    if (m_highlighting)
        if (const auto tokens = m_highlighting->tokens(line))
            for (const SyntaxToken &token : *tokens) {
                const qsizetype from = std::max(token.start, start);
                const qsizetype to = std::min(token.start + token.length, end);
                if (from < to)
                    formats.append(
                        {int(from - start), int(to - from), m_syntaxFormats[std::size_t(token.kind)]});
            }
    // A mark takes a no-break space spaced out to the width of its label.
    const QFont small = markFont();
    const QFontMetricsF smallMetrics(small);
    const qreal space = QFontMetricsF(font()).horizontalAdvance(QChar(0x00a0));
    for (qsizetype i = 0; i < made->text.size(); ++i)
        if (QString label = markFor(made->text[i].unicode()); !label.isEmpty()) {
            made->text[i] = QChar(0x00a0);
            QTextCharFormat format = m_markFormat;
            format.setFontLetterSpacingType(QFont::AbsoluteSpacing);
            format.setFontLetterSpacing(smallMetrics.horizontalAdvance(label) + 4 - space);
            formats.append({int(i), 1, format});
            made->marks.emplace_back(int(i), std::move(label));
        }

    QTextLayout &layout = made->layout;
    layout.setText(made->text);
    layout.setFont(font());
    QTextOption option(Qt::AlignLeft | Qt::AlignAbsolute);
    option.setWrapMode(QTextOption::NoWrap);
    option.setTextDirection(Qt::LeftToRight);
    option.setTabStopDistance(fontMetrics().horizontalAdvance(QLatin1Char(' ')) * 8);
    layout.setTextOption(option);
    layout.setFormats(formats);
    layout.setCacheEnabled(true);
    layout.beginLayout();
    QTextLine textLine = layout.createLine();
    textLine.setLineWidth(1e6);
    // One baseline for every row, whatever fallback font a character needs.
    textLine.setPosition(QPointF(0, fontMetrics().ascent() - textLine.ascent()));
    layout.endLayout();
    const int width = int(std::ceil(textLine.naturalTextWidth()));
    if (width > m_widest) {
        m_widest = width;
        updateScrollBars();
    }
    return *m_layouts.emplace(key, std::move(made)).first->second;
}

qsizetype EditorView::rowOf(TextPosition position, bool atRowEnd) const
{
    const QString &line = m_buffer.line(position.line);
    qsizetype index = m_rows.rowIndexOf(line, position.column);
    if (atRowEnd && index > 0 && m_rows.span(line, index).first == position.column)
        --index;
    return m_rows.firstRow(position.line) + index;
}

TextPosition EditorView::positionAt(qsizetype rowNumber, qreal x)
{
    rowNumber = std::clamp<qsizetype>(rowNumber, 0, m_rows.rowCount() - 1);
    const qsizetype line = m_rows.lineOfRow(rowNumber);
    const qsizetype index = rowNumber - m_rows.firstRow(line);
    const int column = row(line, index).layout.lineAt(0).xToCursor(x, QTextLine::CursorBetweenCharacters);
    return {line, m_rows.span(m_buffer.line(line), index).first + column};
}

TextPosition EditorView::positionAt(QPoint point)
{
    const qsizetype rowNumber = topRow() + (point.y() < 0 ? -1 : point.y() / rowHeight());
    return positionAt(rowNumber, point.x() + horizontalScrollBar()->value() - textLeft());
}

qreal EditorView::xOf(TextPosition position, bool atRowEnd)
{
    const qsizetype rowNumber = rowOf(position, atRowEnd);
    const qsizetype index = rowNumber - m_rows.firstRow(position.line);
    const qsizetype start = m_rows.span(m_buffer.line(position.line), index).first;
    return row(position.line, index).layout.lineAt(0).cursorToX(int(position.column - start));
}

QRect EditorView::cursorRect() const
{
    auto *self = const_cast<EditorView *>(this);
    const qreal x = self->xOf(m_cursor, m_atRowEnd) + textLeft() - horizontalScrollBar()->value();
    const qsizetype y = (cursorRow() - topRow()) * rowHeight();
    return QRect(int(x) - 1, int(y), 3, rowHeight());
}

void EditorView::ensureCursorVisible(bool centre)
{
    const qsizetype rowNumber = cursorRow();
    const qsizetype top = topRow();
    const qsizetype shown = visibleRows();
    QScrollBar *vertical = verticalScrollBar();
    if (centre && (rowNumber < top || rowNumber >= top + shown))
        vertical->setValue(int(rowNumber - shown / 2));
    else if (rowNumber < top)
        vertical->setValue(int(rowNumber));
    else if (rowNumber >= top + shown)
        vertical->setValue(int(rowNumber - shown + 1));

    const int x = int(xOf(m_cursor, m_atRowEnd));
    const int width = viewport()->width() - textLeft() - 4;
    QScrollBar *horizontal = horizontalScrollBar();
    if (x < horizontal->value())
        horizontal->setValue(std::max(0, x - width / 4));
    else if (x > horizontal->value() + width)
        horizontal->setValue(x - width + width / 4);
}

void EditorView::updateScrollBars()
{
    QScrollBar *vertical = verticalScrollBar();
    const qsizetype shown = visibleRows();
    vertical->setRange(0, int(std::max<qsizetype>(0, m_rows.rowCount() - shown)));
    vertical->setPageStep(int(shown));
    vertical->setSingleStep(1);
    QScrollBar *horizontal = horizontalScrollBar();
    const int space = fontMetrics().horizontalAdvance(QLatin1Char(' '));
    horizontal->setRange(0, std::max(0, m_widest + textLeft() + 2 * space - viewport()->width()));
    horizontal->setPageStep(viewport()->width());
    horizontal->setSingleStep(space * 2);
}

void EditorView::updateRowLength()
{
    const int advance = std::max(1, fontMetrics().horizontalAdvance(QLatin1Char('x')));
    const qsizetype length = std::max(16, (viewport()->width() - textLeft() - 3 * advance) / advance);
    if (length == m_rows.rowLength())
        return;
    const qsizetype topLine = m_rows.lineOfRow(topRow());
    m_rows.setRowLength(length);
    m_rows.reset(m_buffer.lines());
    m_layouts.clear();
    m_widest = 0;
    updateScrollBars();
    verticalScrollBar()->setValue(int(m_rows.firstRow(topLine)));
}

void EditorView::textChanged(const TextChange &change)
{
    const qsizetype first = change.start.line;
    const qsizetype removed = change.removedBreaks() + 1;
    const qsizetype added = change.insertedBreaks() + 1;
    const qsizetype linesBefore = m_buffer.lineCount() - added + removed;
    m_rows.update(m_buffer.lines(), first, removed, added);
    if (removed != added)
        m_layouts.clear();
    else
        forgetRows(first, first + added - 1);
    m_cursor = shifted(m_cursor, change);
    m_anchor = shifted(m_anchor, change);
    if (int(std::log10(double(linesBefore))) != int(std::log10(double(m_buffer.lineCount()))))
        resizeEvent(nullptr); // the margin's width
    updateScrollBars();
    viewport()->update();
    m_margin->update();
}

void EditorView::textReset()
{
    m_rows.reset(m_buffer.lines());
    m_layouts.clear();
    m_cursor = m_anchor = {};
    m_atRowEnd = false;
    m_widest = 0;
    resizeEvent(nullptr);
    verticalScrollBar()->setValue(0);
    horizontalScrollBar()->setValue(0);
    viewport()->update();
}

void EditorView::forgetRows(qsizetype first, qsizetype last)
{
    std::erase_if(m_layouts, [&](const auto &entry) {
        const auto line = qsizetype(entry.first >> 24);
        return line >= first && line <= last;
    });
    viewport()->update();
}

void EditorView::updateSelectionClipboard() const
{
    QClipboard *clipboard = QGuiApplication::clipboard();
    if (hasSelection() && clipboard->supportsSelection())
        clipboard->setText(selectedText(), QClipboard::Selection);
}

void EditorView::restartBlink()
{
    m_cursorShown = true;
    const int flash = QGuiApplication::styleHints()->cursorFlashTime();
    if (hasFocus() && flash > 0)
        m_blink.start(flash / 2, this);
    else
        m_blink.stop();
}

bool EditorView::event(QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride) {
        // Keys the text takes are not taken away by a shortcut of the window.
        auto *key = static_cast<QKeyEvent *>(event);
        const bool typed = !key->text().isEmpty() && key->text().front() >= QLatin1Char(' ') &&
                           !(key->modifiers() & (Qt::ControlModifier | Qt::MetaModifier));
        const QKeySequence::StandardKey taken[] = {QKeySequence::Copy,
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
        if (typed ||
            std::any_of(std::begin(taken), std::end(taken), [&](auto k) { return key->matches(k); })) {
            event->accept();
            return true;
        }
    }
    if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Tab &&
        !(static_cast<QKeyEvent *>(event)->modifiers() & (Qt::ControlModifier | Qt::ShiftModifier)) &&
        !m_readOnly) {
        keyPressEvent(static_cast<QKeyEvent *>(event)); // a tab character, not the next widget
        return true;
    }
    return QAbstractScrollArea::event(event);
}

void EditorView::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Copy)) {
        copy();
    } else if (event->matches(QKeySequence::SelectAll)) {
        selectAll();
    } else if (!handleMoveKey(event) && !(m_readOnly ? false : handleEditKey(event))) {
        event->ignore(); // Escape, Ctrl+S and the sheet's other keys
        return;
    }
    event->accept();
}

bool EditorView::handleMoveKey(QKeyEvent *event)
{
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
                                    [&](const Move &move) { return event->matches(move.key); });
    if (found == std::end(moves))
        return false;
    const bool keep = found->select;
    const QString &line = m_buffer.line(m_cursor.line);
    const qsizetype index = rowOf(m_cursor, m_atRowEnd) - m_rows.firstRow(m_cursor.line);
    switch (found->action) {
    case left:
        // Without Shift a selection collapses to its start, as in other text fields.
        setCursorPosition(hasSelection() && !keep ? selection().start : previousCharacter(m_buffer, m_cursor),
                          keep);
        break;
    case right:
        setCursorPosition(hasSelection() && !keep ? selection().end : nextCharacter(m_buffer, m_cursor),
                          keep);
        break;
    case wordLeft:
        setCursorPosition(previousWord(m_buffer, m_cursor), keep);
        break;
    case wordRight:
        setCursorPosition(nextWord(m_buffer, m_cursor), keep);
        break;
    case up:
    case down:
        moveRows(found->action == up ? -1 : 1, keep);
        break;
    case pageUp:
    case pageDown: {
        const qsizetype page = (found->action == pageUp ? -1 : 1) * std::max<qsizetype>(1, visibleRows() - 1);
        verticalScrollBar()->setValue(int(topRow() + page));
        moveRows(page, keep);
        break;
    }
    case home:
        setCursorPosition({m_cursor.line, m_rows.span(line, index).first}, keep);
        break;
    case end:
        setCursorAtRowEnd({m_cursor.line, m_rows.span(line, index).second}, keep);
        break;
    case top:
        setCursorPosition({}, keep);
        break;
    case bottom:
        setCursorPosition(m_buffer.end(), keep);
        break;
    }
    ensureCursorVisible();
    if (keep)
        updateSelectionClipboard();
    return true;
}

void EditorView::moveRows(qsizetype rows, bool keepAnchor)
{
    const qsizetype from = cursorRow();
    const qsizetype to = from + rows;
    if (to < 0 || to >= m_rows.rowCount()) { // past the first or the last row: to that end
        setCursorPosition(to < 0 ? TextPosition{} : m_buffer.end(), keepAnchor);
        return;
    }
    const qreal x = m_wantedX >= 0 ? m_wantedX : xOf(m_cursor, m_atRowEnd);
    setCursorAtRowEnd(positionAt(to, x), keepAnchor);
    if (m_atRowEnd && rowOf(m_cursor, true) != to) // at the start of its row, not the end of the one before
        m_atRowEnd = false;
    m_wantedX = x;
}

bool EditorView::handleEditKey(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Cut)) {
        cut();
    } else if (event->matches(QKeySequence::Paste)) {
        paste();
    } else if (event->matches(QKeySequence::Undo)) {
        undo();
    } else if (event->matches(QKeySequence::Redo)) {
        redo();
    } else if (event->matches(QKeySequence::DeleteStartOfWord)) {
        erase(previousWord(m_buffer, m_cursor), EditKind::other);
    } else if (event->matches(QKeySequence::DeleteEndOfWord)) {
        erase(nextWord(m_buffer, m_cursor), EditKind::other);
    } else if (event->matches(QKeySequence::InsertParagraphSeparator) ||
               event->matches(QKeySequence::InsertLineSeparator)) {
        insert(QStringLiteral("\n"));
    } else if (event->key() == Qt::Key_Backspace && !(event->modifiers() & ~Qt::ShiftModifier)) {
        erase(previousCodePoint(m_buffer, m_cursor), EditKind::deletingBackward);
    } else if (event->matches(QKeySequence::Delete)) {
        erase(nextCharacter(m_buffer, m_cursor), EditKind::deletingForward);
    } else {
        const QString text = event->text();
        // Ctrl with Alt is AltGr on some systems: its characters are typed text.
        const Qt::KeyboardModifiers held = event->modifiers();
        const bool command =
            (held & Qt::ControlModifier && !(held & Qt::AltModifier)) || (held & Qt::MetaModifier);
        const bool printable = !text.isEmpty() && std::all_of(text.begin(), text.end(), [](QChar c) {
            return c == QLatin1Char('\t') || (c.unicode() >= 0x20 && c.unicode() != 0x7f);
        });
        if (command || !printable)
            return false;
        insert(text, EditKind::typing);
    }
    return true;
}

void EditorView::paintEvent(QPaintEvent *event)
{
    QPainter painter(viewport());
    painter.fillRect(event->rect(),
                     palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, QPalette::Base));
    const int height = rowHeight();
    const qreal left = textLeft() - horizontalScrollBar()->value();
    const TextRange selected = selection();
    QTextCharFormat selectionFormat;
    selectionFormat.setBackground(palette().highlight());
    selectionFormat.setForeground(palette().highlightedText());
    const bool drawCursor = hasFocus() && m_cursorShown && isEnabled();
    const qsizetype cursorRowNumber = cursorRow();

    qsizetype rowNumber = topRow();
    const qsizetype last = std::min(m_rows.rowCount(), rowNumber + viewport()->height() / height + 1);
    qsizetype line = m_rows.lineOfRow(rowNumber);
    qsizetype index = rowNumber - m_rows.firstRow(line);
    for (int y = 0; rowNumber < last; ++rowNumber, y += height) {
        const QString &text = m_buffer.line(line);
        const auto [start, end] = m_rows.span(text, index);
        const bool lastRowOfLine = index + 1 == m_rows.rowsOf(line);
        const QPointF origin(left, y);

        QList<QTextLayout::FormatRange> selections;
        if (!selected.isEmpty()) {
            const TextPosition rowStart{line, start};
            const TextPosition rowEnd{line, end};
            if (selected.start < rowEnd && rowStart < selected.end) {
                const qsizetype from =
                    selected.start.line == line ? std::max(selected.start.column, start) : start;
                const qsizetype to = selected.end.line == line ? std::min(selected.end.column, end) : end;
                selections.append({int(from - start), int(to - from), selectionFormat});
            }
        }
        const bool withPreedit = !m_preedit.isEmpty() && rowNumber == cursorRowNumber;
        QTextLayout preeditLayout;
        const Row &shown = row(line, index);
        const QTextLayout *layout = &shown.layout;
        if (withPreedit) { // laid out anew while a composition lasts, not kept
            preeditLayout.setText(layout->text());
            preeditLayout.setFont(font());
            preeditLayout.setTextOption(layout->textOption());
            preeditLayout.setFormats(layout->formats());
            preeditLayout.setPreeditArea(int(m_cursor.column - start), m_preedit);
            preeditLayout.beginLayout();
            QTextLine textLine = preeditLayout.createLine();
            textLine.setLineWidth(1e6);
            textLine.setPosition(layout->lineAt(0).position());
            preeditLayout.endLayout();
            layout = &preeditLayout;
        }
        layout->draw(&painter, origin, selections);
        if (!shown.marks.empty())
            paintMarks(painter, shown, *layout, origin);
        // The line break is selected too: a space's width after the text says so.
        if (lastRowOfLine && selected.start <= TextPosition{line, end} &&
            TextPosition{line + 1, 0} <= selected.end) {
            const qreal x = left + layout->lineAt(0).naturalTextWidth();
            painter.fillRect(QRectF(x, y, fontMetrics().horizontalAdvance(QLatin1Char(' ')), height),
                             palette().highlight());
        }
        if (drawCursor && rowNumber == cursorRowNumber) {
            const int at = int(m_cursor.column - start) + (withPreedit ? m_preeditCursor : 0);
            layout->drawCursor(&painter, origin, at, 2);
        }
        if (++index == m_rows.rowsOf(line)) {
            ++line;
            index = 0;
        }
    }
}

QFont EditorView::markFont() const
{
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    return small;
}

void EditorView::paintMarks(QPainter &painter, const Row &shown, const QTextLayout &layout, QPointF origin)
{
    const QTextLine textLine = layout.lineAt(0);
    painter.save();
    painter.setFont(markFont());
    painter.setPen(m_markFormat.foreground().color());
    for (const auto &[at, label] : shown.marks) {
        const qreal left = textLine.cursorToX(at);
        const qreal right = textLine.cursorToX(at + 1);
        const QRectF box(origin.x() + left + 1, origin.y() + 2, right - left - 2, rowHeight() - 4);
        painter.drawRoundedRect(box, 2, 2);
        painter.drawText(box, Qt::AlignCenter, label);
    }
    painter.restore();
}

void EditorView::paintMargin(QPaintEvent *event, QWidget *margin)
{
    QPainter painter(margin);
    painter.fillRect(event->rect(), palette().color(QPalette::Base));
    painter.setFont(font());
    const int height = rowHeight();
    const int right = margin->width() - fontMetrics().horizontalAdvance(QLatin1Char('9'));
    const QColor dim = m_markFormat.foreground().color();
    qsizetype rowNumber = topRow();
    const qsizetype last = std::min(m_rows.rowCount(), rowNumber + margin->height() / height + 1);
    qsizetype line = m_rows.lineOfRow(rowNumber);
    qsizetype index = rowNumber - m_rows.firstRow(line);
    for (int y = 0; rowNumber < last; ++rowNumber, y += height) {
        const QRect area(0, y, right, height);
        if (index == 0) {
            painter.setPen(line == m_cursor.line ? palette().color(QPalette::Text) : dim);
            painter.drawText(area, Qt::AlignRight | Qt::AlignVCenter, QString::number(line + 1));
        } else {
            painter.setPen(dim);
            painter.drawText(area, Qt::AlignRight | Qt::AlignVCenter, QStringLiteral("\u21aa"));
        }
        if (++index == m_rows.rowsOf(line)) {
            ++line;
            index = 0;
        }
    }
}

void EditorView::resizeEvent(QResizeEvent *event)
{
    if (event)
        QAbstractScrollArea::resizeEvent(event);
    const int width = marginWidth();
    setViewportMargins(width, 0, 0, 0);
    const QRect contents = contentsRect();
    m_margin->setGeometry(contents.left(), contents.top(), width, viewport()->height());
    updateRowLength();
    updateScrollBars();
}

void EditorView::changeEvent(QEvent *event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) {
        m_layouts.clear();
        m_widest = 0;
        resizeEvent(nullptr);
    }
    viewport()->update();
    m_margin->update();
}

void EditorView::scrollContentsBy(int, int)
{
    viewport()->update();
    m_margin->update();
}

void EditorView::mousePressEvent(QMouseEvent *event)
{
    const TextPosition at = positionAt(event->position().toPoint());
    if (event->button() == Qt::MiddleButton) {
        QClipboard *clipboard = QGuiApplication::clipboard();
        if (!m_readOnly && clipboard->supportsSelection()) {
            setCursorPosition(at);
            insert(clipboard->text(QClipboard::Selection));
        }
        return;
    }
    if (event->button() != Qt::LeftButton)
        return;
    const bool tripleClick =
        QDateTime::currentMSecsSinceEpoch() - m_lastDoubleClick < QApplication::doubleClickInterval() &&
        (event->position().toPoint() - m_doubleClickPoint).manhattanLength() < 4;
    if (tripleClick) { // the whole line and its break
        setCursorPosition({at.line, 0});
        setCursorPosition(nextCharacter(m_buffer, {at.line, m_buffer.line(at.line).size()}), true);
        updateSelectionClipboard();
        return;
    }
    setCursorAtRowEnd(at, event->modifiers() & Qt::ShiftModifier);
    if (m_atRowEnd && rowOf(m_cursor, true) != topRow() + event->position().toPoint().y() / rowHeight())
        m_atRowEnd = false;
    m_dragging = true;
}

void EditorView::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging || !(event->buttons() & Qt::LeftButton))
        return;
    m_dragPoint = event->position().toPoint();
    setCursorPosition(positionAt(m_dragPoint), true);
    if (viewport()->rect().contains(m_dragPoint))
        m_dragScroll.stop();
    else if (!m_dragScroll.isActive())
        m_dragScroll.start(50, this);
}

void EditorView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        m_dragging = false;
        m_dragScroll.stop();
        updateSelectionClipboard();
    }
}

void EditorView::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const TextRange word = wordAt(m_buffer, positionAt(event->position().toPoint()));
    setCursorPosition(word.start);
    setCursorPosition(word.end, true);
    updateSelectionClipboard();
    m_lastDoubleClick = QDateTime::currentMSecsSinceEpoch();
    m_doubleClickPoint = event->position().toPoint();
}

void EditorView::contextMenuEvent(QContextMenuEvent *event)
{
    auto *menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    const auto add = [&](const QString &text, QKeySequence::StandardKey key, bool enabled, auto action) {
        QAction *item = menu->addAction(text, this, action);
        item->setShortcut(key);
        item->setEnabled(enabled);
    };
    const bool editable = !m_readOnly && isEnabled();
    add(tr("Undo"), QKeySequence::Undo, editable && m_buffer.canUndo(), [this] { undo(); });
    add(tr("Redo"), QKeySequence::Redo, editable && m_buffer.canRedo(), [this] { redo(); });
    menu->addSeparator();
    add(tr("Cut"), QKeySequence::Cut, editable && hasSelection(), [this] { cut(); });
    add(tr("Copy"), QKeySequence::Copy, hasSelection(), [this] { copy(); });
    add(tr("Paste"), QKeySequence::Paste, editable && !QGuiApplication::clipboard()->text().isEmpty(),
        [this] { paste(); });
    menu->addSeparator();
    add(tr("Select All"), QKeySequence::SelectAll, true, [this] { selectAll(); });
    menu->popup(event->globalPos());
}

void EditorView::focusInEvent(QFocusEvent *event)
{
    QAbstractScrollArea::focusInEvent(event);
    restartBlink();
    viewport()->update();
}

void EditorView::focusOutEvent(QFocusEvent *event)
{
    QAbstractScrollArea::focusOutEvent(event);
    m_blink.stop();
    viewport()->update();
}

void EditorView::timerEvent(QTimerEvent *event)
{
    if (event->timerId() == m_blink.timerId()) {
        m_cursorShown = !m_cursorShown;
        viewport()->update(cursorRect().adjusted(-2, 0, 2, 0));
    } else if (event->timerId() == m_dragScroll.timerId()) {
        const int step = m_dragPoint.y() < 0 ? -1 : m_dragPoint.y() >= viewport()->height() ? 1 : 0;
        verticalScrollBar()->setValue(int(topRow() + step));
        setCursorPosition(positionAt(m_dragPoint), true);
    } else {
        QAbstractScrollArea::timerEvent(event);
    }
}

void EditorView::inputMethodEvent(QInputMethodEvent *event)
{
    if (m_readOnly) {
        event->ignore();
        return;
    }
    if (!event->commitString().isEmpty() || event->replacementLength() > 0) {
        if (event->replacementLength() > 0 && !hasSelection()) {
            const qsizetype size = m_buffer.line(m_cursor.line).size();
            const qsizetype from =
                std::clamp<qsizetype>(m_cursor.column + event->replacementStart(), 0, size);
            m_anchor = {m_cursor.line, from};
            m_cursor = {m_cursor.line, std::min(size, from + event->replacementLength())};
        }
        insert(event->commitString(), EditKind::typing);
    }
    m_preedit = event->preeditString();
    m_preeditCursor = int(m_preedit.size());
    for (const QInputMethodEvent::Attribute &attribute : event->attributes())
        if (attribute.type == QInputMethodEvent::Cursor)
            m_preeditCursor = attribute.start;
    viewport()->update();
    event->accept();
}

QVariant EditorView::inputMethodQuery(Qt::InputMethodQuery query) const
{
    // Around the cursor only: the surrounding text of a line of megabytes is a window of it.
    const QString &line = m_buffer.line(m_cursor.line);
    qsizetype from = std::max<qsizetype>(0, m_cursor.column - 500);
    if (from > 0 && line[from].isLowSurrogate())
        --from;
    const qsizetype to = std::min(line.size(), m_cursor.column + 500);
    switch (query) {
    case Qt::ImEnabled:
        return isEnabled() && !m_readOnly;
    case Qt::ImCursorRectangle:
        return cursorRect();
    case Qt::ImFont:
        return font();
    case Qt::ImCursorPosition:
        return int(m_cursor.column - from);
    case Qt::ImAnchorPosition:
        return int(
            (m_anchor.line == m_cursor.line ? std::clamp(m_anchor.column, from, to) : m_cursor.column) -
            from);
    case Qt::ImSurroundingText:
        return line.mid(from, to - from);
    case Qt::ImTextBeforeCursor:
        return line.mid(from, m_cursor.column - from);
    case Qt::ImTextAfterCursor:
        return line.mid(m_cursor.column, to - m_cursor.column);
    case Qt::ImCurrentSelection:
        return selectedText();
    case Qt::ImAbsolutePosition:
        return qlonglong(m_buffer.offset(m_cursor));
    case Qt::ImHints:
        return int(inputMethodHints() | Qt::ImhMultiLine);
    default:
        return QAbstractScrollArea::inputMethodQuery(query);
    }
}

} // namespace quillorn::detail
