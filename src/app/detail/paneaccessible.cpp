#include "app/detail/paneaccessible.h"

#include "app/detail/panetableview.h"

#include <QHeaderView>
#include <QWindow>

namespace quillorn::detail {

namespace {

constexpr int columns = PaneTableModel::columnCount_;

// A column header (row -1), a row (column -1) or a cell of a pane's listing.
// It remembers the selection and text it last told of, so that a change notice
// for many rows tells only of what changed.
class ListingItem : public QAccessibleInterface, public QAccessibleTableCellInterface {
public:
    ListingItem(const PaneTableAccessible &table, int row, int column)
        : m_table(table), m_row(row), m_column(column)
    {
        if (isValid()) {
            m_toldSelected = state().selected;
            m_toldName = text(QAccessible::Name);
        }
    }

    bool isHeader() const { return m_row < 0; }
    bool isRow() const { return m_column < 0; }
    bool isCell() const { return !isHeader() && !isRow(); }
    int row() const { return m_row; }

    void tellChanges()
    {
        if (!isValid())
            return;
        if (const bool selected = state().selected; selected != m_toldSelected) {
            m_toldSelected = selected;
            QAccessibleEvent event(this, selected ? QAccessible::SelectionAdd : QAccessible::SelectionRemove);
            QAccessible::updateAccessibility(&event);
        }
        if (QString name = text(QAccessible::Name); name != m_toldName) {
            m_toldName = std::move(name);
            QAccessibleEvent event(this, QAccessible::NameChanged);
            QAccessible::updateAccessibility(&event);
        }
    }

    bool isValid() const override { return m_table.view() && (isHeader() || m_row < m_table.rowCount()); }
    QObject *object() const override { return nullptr; }
    QWindow *window() const override
    {
        const PaneTableView *view = m_table.view();
        return view ? view->window()->windowHandle() : nullptr;
    }
    QAccessibleInterface *parent() const override
    {
        return isCell() ? m_table.rowInterface(m_row) : const_cast<PaneTableAccessible *>(&m_table);
    }
    QAccessibleInterface *child(int index) const override
    {
        return isRow() ? m_table.cellAt(m_row, index) : nullptr;
    }
    int childCount() const override { return isRow() ? columns : 0; }
    int indexOfChild(const QAccessibleInterface *child) const override
    {
        const auto *item = dynamic_cast<const ListingItem *>(child);
        return isRow() && item && item->isCell() && item->m_row == m_row ? item->m_column : -1;
    }
    QAccessibleInterface *childAt(int x, int y) const override
    {
        for (int column = 0; isRow() && column < columns; ++column)
            if (QAccessibleInterface *cell = m_table.cellAt(m_row, column);
                cell && cell->rect().contains(x, y))
                return cell;
        return nullptr;
    }

    QString text(QAccessible::Text type) const override
    {
        if (type != QAccessible::Name || !isValid())
            return {};
        if (isHeader())
            return m_table.model()->headerData(m_column, Qt::Horizontal).toString();
        if (isCell())
            return m_table.model()->index(m_row, m_column).data().toString();
        QStringList parts;
        for (int column = 0; column < columns; ++column)
            parts << m_table.model()->index(m_row, column).data().toString();
        return parts.join(QStringLiteral(", "));
    }
    void setText(QAccessible::Text, const QString &) override {}

    QRect rect() const override
    {
        const PaneTableView *view = m_table.view();
        if (!view)
            return {};
        if (isHeader()) {
            const QHeaderView *header = view->horizontalHeader();
            return {header->mapToGlobal(QPoint(header->sectionViewportPosition(m_column), 0)),
                    QSize(header->sectionSize(m_column), header->height())};
        }
        const QRect shown = shownRect();
        return {view->viewport()->mapToGlobal(shown.topLeft()), shown.size()};
    }

    QAccessible::Role role() const override
    {
        return isHeader() ? QAccessible::ColumnHeader : isRow() ? QAccessible::Row : QAccessible::Cell;
    }

    QAccessible::State state() const override
    {
        QAccessible::State state;
        const PaneTableView *view = m_table.view();
        if (!view || !isValid())
            return state;
        state.invisible = !view->isVisible();
        if (isHeader())
            return state;
        state.offscreen = !view->viewport()->rect().intersects(shownRect());
        state.selectable = true;
        state.selected = isSelected();
        if (isRow()) {
            state.focusable = true;
            state.focused = m_table.hasFocus(m_row);
        }
        return state;
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::TableCellInterface && isCell())
            return static_cast<QAccessibleTableCellInterface *>(this);
        return nullptr;
    }

    bool isSelected() const override { return m_table.isRowSelected(m_row); }
    QList<QAccessibleInterface *> columnHeaderCells() const override
    {
        return {m_table.headerInterface(m_column)};
    }
    QList<QAccessibleInterface *> rowHeaderCells() const override { return {}; }
    int columnIndex() const override { return m_column; }
    int rowIndex() const override { return m_row; }
    int columnExtent() const override { return 1; }
    int rowExtent() const override { return 1; }
    QAccessibleInterface *table() const override { return const_cast<PaneTableAccessible *>(&m_table); }

private:
    // In the viewport's coordinates.
    QRect shownRect() const
    {
        const PaneTableView *view = m_table.view();
        const QAbstractItemModel *model = m_table.model();
        if (isCell())
            return view->visualRect(model->index(m_row, m_column));
        return view->visualRect(model->index(m_row, 0))
            .united(view->visualRect(model->index(m_row, columns - 1)));
    }

    const PaneTableAccessible &m_table;
    const int m_row;
    const int m_column;
    bool m_toldSelected = false;
    QString m_toldName;
};

template <typename Key, typename Make>
QAccessibleInterface *cached(QHash<Key, QAccessible::Id> &ids, Key key, Make make)
{
    if (const QAccessible::Id id = ids.value(key))
        if (QAccessibleInterface *known = QAccessible::accessibleInterface(id))
            return known;
    QAccessibleInterface *made = make();
    ids.insert(key, QAccessible::registerAccessibleInterface(made));
    return made;
}

ListingItem *item(QAccessible::Id id)
{
    return static_cast<ListingItem *>(QAccessible::accessibleInterface(id));
}

} // namespace

PaneTableAccessible::PaneTableAccessible(PaneTableView *view) : QAccessibleWidget(view, QAccessible::Table)
{
}

PaneTableAccessible::~PaneTableAccessible()
{
    forgetRowsAndCells();
    for (const QAccessible::Id id : m_headers)
        if (id)
            QAccessible::deleteAccessibleInterface(id);
}

void PaneTableAccessible::install()
{
    static const bool installed = [] {
        QAccessible::installFactory([](const QString &, QObject *object) -> QAccessibleInterface * {
            auto *view = qobject_cast<PaneTableView *>(object);
            return view ? new PaneTableAccessible(view) : nullptr;
        });
        return true;
    }();
    Q_UNUSED(installed);
}

PaneTableView *PaneTableAccessible::view() const
{
    return qobject_cast<PaneTableView *>(object());
}

PaneTableModel *PaneTableAccessible::model() const
{
    const PaneTableView *table = view();
    return table ? qobject_cast<PaneTableModel *>(table->model()) : nullptr;
}

QAccessible::State PaneTableAccessible::state() const
{
    QAccessible::State state = QAccessibleWidget::state();
    state.multiSelectable = true;
    return state;
}

int PaneTableAccessible::rowCount() const
{
    const PaneTableModel *rows = model();
    return rows ? rows->rowCount() : 0;
}

int PaneTableAccessible::columnCount() const
{
    return columns;
}

int PaneTableAccessible::childCount() const
{
    return columns + rowCount();
}

QAccessibleInterface *PaneTableAccessible::child(int index) const
{
    return index < columns ? headerInterface(index) : rowInterface(index - columns);
}

int PaneTableAccessible::indexOfChild(const QAccessibleInterface *child) const
{
    const auto *item = dynamic_cast<const ListingItem *>(child);
    if (!item || item->isCell() || item->table() != this)
        return -1;
    return item->isHeader() ? item->columnIndex() : columns + item->row();
}

QAccessibleInterface *PaneTableAccessible::childAt(int x, int y) const
{
    const PaneTableView *table = view();
    if (!table)
        return nullptr;
    const QHeaderView *header = table->horizontalHeader();
    const QPoint inHeader = header->mapFromGlobal(QPoint(x, y));
    if (header->isVisible() && header->rect().contains(inHeader))
        return headerInterface(header->logicalIndexAt(inHeader));
    const QPoint inList = table->viewport()->mapFromGlobal(QPoint(x, y));
    if (!table->viewport()->rect().contains(inList))
        return nullptr;
    const QModelIndex index = table->indexAt(inList);
    return index.isValid() ? rowInterface(index.row()) : nullptr;
}

QAccessibleInterface *PaneTableAccessible::focusChild() const
{
    const std::optional<int> row = focusedRow();
    return row ? rowInterface(*row) : nullptr;
}

void *PaneTableAccessible::interface_cast(QAccessible::InterfaceType type)
{
    if (type == QAccessible::TableInterface)
        return static_cast<QAccessibleTableInterface *>(this);
    return QAccessibleWidget::interface_cast(type);
}

QAccessibleInterface *PaneTableAccessible::rowInterface(int row) const
{
    if (row < 0 || row >= rowCount())
        return nullptr;
    return cached(m_rows, row, [&] { return new ListingItem(*this, row, -1); });
}

QAccessibleInterface *PaneTableAccessible::headerInterface(int column) const
{
    if (column < 0 || column >= columns)
        return nullptr;
    QAccessible::Id &id = m_headers[static_cast<std::size_t>(column)];
    if (QAccessibleInterface *known = id ? QAccessible::accessibleInterface(id) : nullptr)
        return known;
    auto *made = new ListingItem(*this, -1, column);
    id = QAccessible::registerAccessibleInterface(made);
    return made;
}

QAccessibleInterface *PaneTableAccessible::cellAt(int row, int column) const
{
    if (row < 0 || row >= rowCount() || column < 0 || column >= columns)
        return nullptr;
    return cached(m_cells, qint64(row) * columns + column,
                  [&] { return new ListingItem(*this, row, column); });
}

QString PaneTableAccessible::columnDescription(int column) const
{
    const PaneTableModel *rows = model();
    return rows ? rows->headerData(column, Qt::Horizontal).toString() : QString();
}

QString PaneTableAccessible::rowDescription(int) const
{
    return {};
}

bool PaneTableAccessible::isRowSelected(int row) const
{
    const PaneTableModel *rows = model();
    return rows && rows->index(row, 0).data(PaneTableModel::taggedRole).toBool();
}

QList<int> PaneTableAccessible::selectedRows() const
{
    QList<int> rows;
    for (int row = 0; row < rowCount(); ++row)
        if (isRowSelected(row))
            rows << row;
    return rows;
}

int PaneTableAccessible::selectedRowCount() const
{
    return static_cast<int>(selectedRows().size());
}

int PaneTableAccessible::selectedCellCount() const
{
    return selectedRowCount() * columns;
}

QList<QAccessibleInterface *> PaneTableAccessible::selectedCells() const
{
    QList<QAccessibleInterface *> cells;
    for (const int row : selectedRows())
        for (int column = 0; column < columns; ++column)
            cells << cellAt(row, column);
    return cells;
}

bool PaneTableAccessible::hasFocus(int row) const
{
    return focusedRow() == row;
}

std::optional<int> PaneTableAccessible::focusedRow() const
{
    const PaneTableView *table = view();
    const PaneTableModel *rows = model();
    if (!table || !rows || !table->cursorHasFocus())
        return std::nullopt;
    return rows->cursorRow();
}

void PaneTableAccessible::modelChange(QAccessibleTableModelChangeEvent *event)
{
    if (event->modelChangeType() == QAccessibleTableModelChangeEvent::DataChanged)
        tellChanges(event->firstRow(), event->lastRow());
    else
        forgetRowsAndCells();
    updateFocus();
}

void PaneTableAccessible::updateFocus()
{
    const std::optional<int> row = focusedRow();
    if (!row) {
        m_announced.reset();
        return;
    }
    // A new listing that keeps the cursor on the same entry is not read again.
    const QByteArray entry = model()->index(*row, 0).data(PaneTableModel::pathRole).toByteArray();
    if (m_announced == entry)
        return;
    m_announced = entry;
    if (QAccessibleInterface *focused = rowInterface(*row)) {
        QAccessibleEvent event(focused, QAccessible::Focus);
        QAccessible::updateAccessibility(&event);
    }
}

// Tags and the cursor announce every row as changed; only the rows and cells
// a screen reader has asked for can have anything to tell.
void PaneTableAccessible::tellChanges(int firstRow, int lastRow)
{
    QList<QAccessible::Id> ids = m_rows.values();
    ids += m_cells.values();
    for (const QAccessible::Id id : ids)
        if (ListingItem *changed = item(id);
            changed && changed->row() >= firstRow && changed->row() <= lastRow)
            changed->tellChanges();
}

void PaneTableAccessible::forgetRowsAndCells()
{
    for (const QAccessible::Id id : std::as_const(m_rows))
        QAccessible::deleteAccessibleInterface(id);
    for (const QAccessible::Id id : std::as_const(m_cells))
        QAccessible::deleteAccessibleInterface(id);
    m_rows.clear();
    m_cells.clear();
}

} // namespace quillorn::detail
