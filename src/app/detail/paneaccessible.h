#pragma once

#include "app/detail/panetablemodel.h"

#include <QAccessibleWidget>
#include <QByteArray>
#include <QHash>

#include <array>
#include <optional>

namespace quillorn::detail {

class PaneTableView;

// What screen readers find of a pane's listing. The pane's cursor and tags are
// the pane model's own state, not Qt's current index and selection, so Qt's
// table interface would report no row as focused or selected; this one reads
// them from the model's cursor and tag roles instead.
//
// The table carries the view's accessible name ("Left pane", "Right pane") and
// holds the three column headers, then one row per listed entry, named "name,
// size, date" and holding the entry's three cells. A row is focusable and
// selectable; it is focused when it has the cursor while the window's keys
// drive this pane, and selected, with its cells, when it is tagged.
//
// Rows and cells are made when asked for and keep their ids until the listing
// is replaced. The view's change notices (QAccessibleTableModelChangeEvent)
// arrive here: a row told of earlier is told again when its tag or its text
// changes, and the cursor row is announced as the focus when it moves, when
// the pane becomes active and when the keyboard comes back to the panes.
class PaneTableAccessible : public QAccessibleWidget, public QAccessibleTableInterface {
public:
    explicit PaneTableAccessible(PaneTableView *view);
    ~PaneTableAccessible() override;

    // Registers the interface for every PaneTableView, once per process.
    static void install();

    QAccessible::State state() const override;
    int childCount() const override;
    QAccessibleInterface *child(int index) const override;
    int indexOfChild(const QAccessibleInterface *child) const override;
    QAccessibleInterface *childAt(int x, int y) const override;
    QAccessibleInterface *focusChild() const override;
    void *interface_cast(QAccessible::InterfaceType type) override;

    QAccessibleInterface *caption() const override { return nullptr; }
    QAccessibleInterface *summary() const override { return nullptr; }
    QAccessibleInterface *cellAt(int row, int column) const override;
    int selectedCellCount() const override;
    QList<QAccessibleInterface *> selectedCells() const override;
    QString columnDescription(int column) const override;
    QString rowDescription(int row) const override;
    int selectedColumnCount() const override { return 0; }
    int selectedRowCount() const override;
    int columnCount() const override;
    int rowCount() const override;
    QList<int> selectedColumns() const override { return {}; }
    QList<int> selectedRows() const override;
    bool isColumnSelected(int) const override { return false; }
    bool isRowSelected(int row) const override;
    // Tags change through the pane's keys and clicks only.
    bool selectRow(int) override { return false; }
    bool selectColumn(int) override { return false; }
    bool unselectRow(int) override { return false; }
    bool unselectColumn(int) override { return false; }
    void modelChange(QAccessibleTableModelChangeEvent *event) override;

    // Announces the cursor row as the focus if it has the keyboard now and was
    // not announced since the keyboard came to it.
    void updateFocus();

    // For the rows, cells and headers.
    PaneTableView *view() const;
    PaneTableModel *model() const;
    QAccessibleInterface *rowInterface(int row) const;
    QAccessibleInterface *headerInterface(int column) const;
    bool hasFocus(int row) const;

private:
    std::optional<int> focusedRow() const;
    void forgetRowsAndCells();
    void tellChanges(int firstRow, int lastRow);

    mutable QHash<int, QAccessible::Id> m_rows;
    mutable QHash<qint64, QAccessible::Id> m_cells; // row * columns + column
    mutable std::array<QAccessible::Id, PaneTableModel::columnCount_> m_headers{};
    // The entry last announced as the focus, by its path bytes.
    std::optional<QByteArray> m_announced;
};

} // namespace quillorn::detail
