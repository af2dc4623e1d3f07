#pragma once

#include "tools/detail/rowlayouts.h"
#include "tools/detail/rowmap.h"
#include "tools/detail/syntaxrules.h"
#include "tools/detail/textbuffer.h"

#include <QAbstractScrollArea>
#include <QBasicTimer>
#include <QPointer>

#include <array>
#include <functional>
#include <memory>
#include <vector>

namespace quillorn::detail {

class SyntaxHighlighting;

// The editor's text view. It keeps the text as lines (TextBuffer) and lays
// out only the rows on screen, one QTextLayout per row, so opening, typing and
// scrolling cost the same in a text of one line of 8 MiB as in one of short
// lines. A line longer than RowMap::longLine is shown as several rows, the
// later ones marked as continuations in the margin; the rows are a view of
// the line and nothing of them reaches the text. Characters a layout would
// not draw as they are (controls, carriage returns, the line and paragraph
// separators, noncharacters) are drawn as visible marks in a colour of their
// own, while the text keeps them unchanged.
class EditorView : public QAbstractScrollArea {
    Q_OBJECT
public:
    explicit EditorView(QWidget *parent = nullptr);
    ~EditorView() override;

    TextBuffer &buffer() { return m_buffer; }
    const TextBuffer &buffer() const { return m_buffer; }

    void setHighlighting(SyntaxHighlighting *highlighting);
    // Colours per SyntaxKind, and the colour of the marks that stand for characters.
    void setSyntaxColours(const std::array<QColor, syntaxKindCount> &colours, const QColor &marks);
    // What a paste becomes before it goes into the text (the file's line breaks).
    void setPasteFilter(std::function<QString(QString)> filter) { m_pasteFilter = std::move(filter); }

    bool isReadOnly() const { return m_readOnly; }
    void setReadOnly(bool readOnly);

    TextPosition cursorPosition() const { return m_cursor; }
    TextRange selection() const;
    bool hasSelection() const { return m_anchor != m_cursor; }
    QString selectedText() const { return m_buffer.text(selection()); }
    void setCursorPosition(TextPosition position, bool keepAnchor = false);
    // Anchor at the start, cursor at the end, the range brought into view.
    void select(TextRange range);
    // Puts text in place of the selection as the user would type it.
    void insert(const QString &text, EditKind kind = EditKind::other);
    void undo();
    void redo();
    void copy() const;
    void cut();
    void paste();
    void selectAll();

    // What the screen shows: the first row and how many fit.
    qsizetype topRow() const;
    qsizetype visibleRows() const;
    const RowMap &rows() const { return m_rows; }
    void ensureCursorVisible(bool centre = false);
    // The cursor's rectangle in viewport coordinates.
    QRect cursorRect() const;
    QVariant inputMethodQuery(Qt::InputMethodQuery query) const override;
    // A character's rectangle, and the position nearest a point, in viewport coordinates.
    QRect characterRect(TextPosition position) const;
    TextPosition positionAtPoint(QPoint point) { return positionAt(point); }

Q_SIGNALS:
    void cursorMoved();

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void inputMethodEvent(QInputMethodEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void timerEvent(QTimerEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    class Margin;
    friend class Margin;
    friend class EditorInput;
    // Edits and moves.
    void erase(TextPosition to, EditKind kind);
    void moveRows(qsizetype rows, bool keepAnchor);
    void setCursorAtRowEnd(TextPosition position, bool keepAnchor);

    // Rows and geometry.
    const RowLayouts::Row &row(qsizetype line, qsizetype index);
    qsizetype rowOf(TextPosition position, bool atRowEnd) const;
    qsizetype cursorRow() const { return rowOf(m_cursor, m_atRowEnd); }
    TextPosition positionAt(qsizetype row, qreal x);
    TextPosition positionAt(QPoint point);
    qreal xOf(TextPosition position, bool atRowEnd);
    int rowHeight() const;
    int textLeft() const;
    void updateRowLength();
    void updateScrollBars();
    void textChanged(const TextChange &change);
    void textReset();
    void tellAccessibility(const TextChange *change);
    void forgetRows(qsizetype first, qsizetype last);
    void updateSelectionClipboard() const;
    void restartBlink();
    void paintMargin(QPaintEvent *event, QWidget *margin);
    int marginWidth() const;

    TextBuffer m_buffer;
    RowMap m_rows;
    QPointer<SyntaxHighlighting> m_highlighting;
    RowLayouts m_layouts{m_buffer, m_rows};
    QColor m_markColour;
    std::function<QString(QString)> m_pasteFilter;
    Margin *m_margin = nullptr;

    TextPosition m_cursor;
    TextPosition m_anchor;
    bool m_atRowEnd = false; // the cursor sits at the end of a row that its line continues
    qreal m_wantedX = -1;    // where Up and Down aim, kept across short rows
    bool m_readOnly = false;
    bool m_cursorShown = true;
    QBasicTimer m_blink;
    QBasicTimer m_dragScroll;
    QPoint m_dragPoint;
    bool m_dragging = false;
    qint64 m_lastDoubleClick = 0;
    QPoint m_doubleClickPoint;
    QString m_preedit;
    int m_preeditCursor = 0;
    int m_widest = 0; // of the rows laid out, for the horizontal scroll bar
};

} // namespace quillorn::detail
