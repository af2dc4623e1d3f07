#include "tools/detail/editorview.h"

#include "tools/detail/editoraccessible.h"
#include "tools/detail/editorinput.h"
#include "tools/detail/syntaxhighlighting.h"
#include "tools/detail/textmoves.h"

#include <QAccessible>
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
    m_markColour = palette().color(QPalette::PlaceholderText);
    m_layouts.setFont(font());
    connect(&m_buffer, &TextBuffer::changed, this, &EditorView::textChanged);
    connect(&m_buffer, &TextBuffer::reset, this, &EditorView::textReset);
    connect(this, &EditorView::cursorMoved, this, [this] { tellAccessibility(nullptr); });
    static const bool factory = [] {
        QAccessible::installFactory(&EditorAccessible::create);
        return true;
    }();
    Q_UNUSED(factory);
    textReset();
}

void EditorView::tellAccessibility(const TextChange *change)
{
    if (!QAccessible::isActive())
        return;
    if (change) {
        QAccessibleTextUpdateEvent update(this, int(m_buffer.offset(change->start)), change->removed,
                                          change->inserted);
        QAccessible::updateAccessibility(&update);
        return;
    }
    if (hasSelection()) {
        const TextRange range = selection();
        QAccessibleTextSelectionEvent selected(this, int(m_buffer.offset(range.start)),
                                               int(m_buffer.offset(range.end)));
        QAccessible::updateAccessibility(&selected);
    }
    QAccessibleTextCursorEvent moved(this, int(m_buffer.offset(m_cursor)));
    QAccessible::updateAccessibility(&moved);
}

EditorView::~EditorView() = default;

void EditorView::setHighlighting(SyntaxHighlighting *highlighting)
{
    if (m_highlighting)
        m_highlighting->disconnect(this);
    m_highlighting = highlighting;
    if (highlighting)
        connect(highlighting, &SyntaxHighlighting::linesChanged, this, &EditorView::forgetRows);
    m_layouts.setHighlighting(highlighting);
    viewport()->update();
}

void EditorView::setSyntaxColours(const std::array<QColor, syntaxKindCount> &colours, const QColor &marks)
{
    std::array<QTextCharFormat, syntaxKindCount> formats;
    for (std::size_t i = 0; i < colours.size(); ++i)
        formats[i].setForeground(colours[i]);
    QTextCharFormat markFormat;
    markFormat.setForeground(marks);
    m_layouts.setColours(formats, markFormat);
    m_markColour = marks;
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

const RowLayouts::Row &EditorView::row(qsizetype line, qsizetype index)
{
    const RowLayouts::Row &made = m_layouts.row(line, index);
    if (m_layouts.widest() > m_widest) {
        m_widest = m_layouts.widest();
        updateScrollBars();
    }
    return made;
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

QRect EditorView::characterRect(TextPosition position) const
{
    auto *self = const_cast<EditorView *>(this);
    position = m_buffer.clamp(position);
    const qreal left = self->xOf(position, false);
    const TextPosition next = nextCharacter(m_buffer, position);
    const qreal right = next.line == position.line && next != position
                            ? self->xOf(next, true)
                            : left + fontMetrics().horizontalAdvance(QLatin1Char(' '));
    const qsizetype y = (rowOf(position, false) - topRow()) * rowHeight();
    const int x = int(left) + textLeft() - horizontalScrollBar()->value();
    return QRect(x, int(y), std::max(1, int(right - left)), rowHeight());
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
    m_layouts.resetWidest();
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
    tellAccessibility(&change);
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
    m_layouts.resetWidest();
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
    if (m_layouts.forget(first, last))
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
    if (event->type() == QEvent::ShortcutOverride && EditorInput::takes(*static_cast<QKeyEvent *>(event))) {
        event->accept(); // keys the text takes are not taken away by a shortcut of the window
        return true;
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
    if (EditorInput(*this).handle(*event))
        event->accept();
    else
        event->ignore(); // Escape, Ctrl+S and the sheet's other keys
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
        const RowLayouts::Row &shown = row(line, index);
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
            m_layouts.paintMarks(painter, shown, *layout, origin, height);
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

void EditorView::paintMargin(QPaintEvent *event, QWidget *margin)
{
    QPainter painter(margin);
    painter.fillRect(event->rect(), palette().color(QPalette::Base));
    painter.setFont(font());
    const int height = rowHeight();
    const int right = margin->width() - fontMetrics().horizontalAdvance(QLatin1Char('9'));
    const QColor dim = m_markColour;
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
        m_layouts.setFont(font());
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
    if (EditorInput(*this).compose(*event))
        event->accept();
    else
        event->ignore();
}

QVariant EditorView::inputMethodQuery(Qt::InputMethodQuery query) const
{
    const QVariant answer = EditorInput::answer(*this, query);
    return answer.isValid() ? answer : QAbstractScrollArea::inputMethodQuery(query);
}

} // namespace quillorn::detail
