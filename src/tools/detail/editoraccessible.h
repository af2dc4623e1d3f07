#pragma once

#include <QAccessibleWidget>

namespace quillorn::detail {

class EditorView;

// What a screen reader learns of the editor's text view: an editable,
// multi-line text, its characters, words, sentences and lines around an
// offset, the cursor and the selection, all read from the lines around the
// place asked about rather than from a copy of the whole text.
class EditorAccessible : public QAccessibleWidget,
                         public QAccessibleTextInterface,
                         public QAccessibleEditableTextInterface {
public:
    explicit EditorAccessible(EditorView *view);

    // The factory QAccessible::installFactory takes.
    static QAccessibleInterface *create(const QString &className, QObject *object);

    void *interface_cast(QAccessible::InterfaceType type) override;
    QAccessible::State state() const override;
    QString text(QAccessible::Text kind) const override;

    void selection(int selectionIndex, int *startOffset, int *endOffset) const override;
    int selectionCount() const override;
    void addSelection(int startOffset, int endOffset) override;
    void removeSelection(int selectionIndex) override;
    void setSelection(int selectionIndex, int startOffset, int endOffset) override;
    int cursorPosition() const override;
    void setCursorPosition(int position) override;
    QString text(int startOffset, int endOffset) const override;
    QString textBeforeOffset(int offset, QAccessible::TextBoundaryType boundary, int *startOffset,
                             int *endOffset) const override;
    QString textAfterOffset(int offset, QAccessible::TextBoundaryType boundary, int *startOffset,
                            int *endOffset) const override;
    QString textAtOffset(int offset, QAccessible::TextBoundaryType boundary, int *startOffset,
                         int *endOffset) const override;
    int characterCount() const override;
    QRect characterRect(int offset) const override;
    int offsetAtPoint(const QPoint &point) const override;
    void scrollToSubstring(int startIndex, int endIndex) override;
    QString attributes(int offset, int *startOffset, int *endOffset) const override;

    void deleteText(int startOffset, int endOffset) override;
    void insertText(int offset, const QString &text) override;
    void replaceText(int startOffset, int endOffset, const QString &text) override;

private:
    EditorView *view() const;
    // The piece of `boundary` around `offset`, as offsets [start, end).
    std::pair<int, int> pieceAt(int offset, QAccessible::TextBoundaryType boundary) const;
};

} // namespace quillorn::detail
