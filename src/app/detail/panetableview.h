#pragma once

#include <QPoint>
#include <QTableView>

#include <filesystem>
#include <vector>

namespace quillorn::detail {

// The listing's table. It takes no keyboard focus (the window's key handler
// drives the cursor) and has no selection of its own: presses, double clicks,
// context-menu clicks and drags on rows are reported as signals, and a row
// dragged out becomes a file URL, a tagged one together with all other tagged
// rows.
class PaneTableView : public QTableView {
    Q_OBJECT
public:
    explicit PaneTableView(QWidget *parent = nullptr);

    // Scrolls just far enough to show the row, also right after a reset whose
    // layout the view would otherwise only do later.
    void scrollToRow(int row);

    // Whether this lists the active pane, whose cursor the window's keys move.
    void setActive(bool active);
    // Whether the window's keys move this listing's cursor now: its pane is
    // active and the keyboard is on the panes (KeyHandler::panesHaveKeyboard).
    // Screen readers are told of the cursor row as the focus then.
    bool cursorHasFocus() const;

Q_SIGNALS:
    void rowClicked(int row, Qt::KeyboardModifiers modifiers);
    void rowDoubleClicked(int row);
    // A right-click (or the platform's other context-menu gesture) on a row, or
    // below the rows (-1); at a global position.
    void contextMenuRequested(int row, QPoint globalPosition);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    std::vector<std::filesystem::path> draggedItems(int row) const;
    void startDragOfRow(int row);
    void tellScreenReadersOfFocus();

    int m_pressedRow = -1;
    QPoint m_pressPosition;
    Qt::KeyboardModifiers m_pressModifiers;
    bool m_clickOnRelease = false;
    bool m_active = false;
};

} // namespace quillorn::detail
