#include "app/detail/panetableview.h"

#include "app/detail/paneinput.h"
#include "app/detail/panetablemodel.h"

#include <QApplication>
#include <QDrag>
#include <QHeaderView>
#include <QMimeData>
#include <QMouseEvent>

#include <string>

namespace quillorn::detail {

PaneTableView::PaneTableView(QWidget *parent) : QTableView(parent)
{
    setFocusPolicy(Qt::NoFocus);
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setTabKeyNavigation(false);
    setShowGrid(false);
    setWordWrap(false);
    setCornerButtonEnabled(false);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setFrameShape(QFrame::NoFrame);
    verticalHeader()->hide();
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSortIndicatorShown(false);
    horizontalHeader()->setSectionsClickable(true);
    horizontalHeader()->setSectionsMovable(false);
}

void PaneTableView::scrollToRow(int row)
{
    executeDelayedItemsLayout();
    scrollTo(model()->index(row, 0), QAbstractItemView::EnsureVisible);
}

void PaneTableView::mousePressEvent(QMouseEvent *event)
{
    m_pressedRow = -1;
    if (event->button() != Qt::LeftButton)
        return;
    const QModelIndex index = indexAt(event->position().toPoint());
    if (!index.isValid())
        return;
    m_pressedRow = index.row();
    m_pressPosition = event->position().toPoint();
    Q_EMIT rowClicked(index.row(), event->modifiers());
}

void PaneTableView::mouseMoveEvent(QMouseEvent *event)
{
    if (m_pressedRow < 0 || !(event->buttons() & Qt::LeftButton))
        return;
    if ((event->position().toPoint() - m_pressPosition).manhattanLength() < QApplication::startDragDistance())
        return;
    const int row = m_pressedRow;
    m_pressedRow = -1;
    startDragOfRow(row);
}

void PaneTableView::mouseReleaseEvent(QMouseEvent *)
{
    m_pressedRow = -1;
}

void PaneTableView::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const QModelIndex index = indexAt(event->position().toPoint());
    if (index.isValid())
        Q_EMIT rowDoubleClicked(index.row());
}

void PaneTableView::startDragOfRow(int row)
{
    const QByteArray bytes = model()->index(row, 0).data(PaneTableModel::pathRole).toByteArray();
    if (bytes.isEmpty())
        return;
    const std::filesystem::path item(std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())));
    auto *drag = new QDrag(this);
    drag->setMimeData(dragData(item).release());
    drag->exec(Qt::CopyAction | Qt::MoveAction | Qt::LinkAction, Qt::CopyAction);
}

} // namespace quillorn::detail
