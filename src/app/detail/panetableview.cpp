#include "app/detail/panetableview.h"

#include "app/detail/paneaccessible.h"
#include "app/detail/paneinput.h"
#include "app/detail/panetablemodel.h"
#include "app/keyhandler.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QDrag>
#include <QHeaderView>
#include <QMimeData>
#include <QMouseEvent>

#include <string>
#include <utility>

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

    PaneTableAccessible::install();
    // Qt announces the new focus widget after this signal: the cursor row is
    // announced once that is done, so that it is what a screen reader is left on.
    connect(qApp, &QApplication::focusChanged, this, &PaneTableView::tellScreenReadersOfFocus,
            Qt::QueuedConnection);
}

void PaneTableView::setActive(bool active)
{
    m_active = active;
    tellScreenReadersOfFocus();
}

bool PaneTableView::cursorHasFocus() const
{
    return m_active && KeyHandler::panesHaveKeyboard(window());
}

void PaneTableView::tellScreenReadersOfFocus()
{
    if (!QAccessible::isActive())
        return;
    if (auto *table = dynamic_cast<PaneTableAccessible *>(QAccessible::queryAccessibleInterface(this)))
        table->updateFocus();
}

void PaneTableView::scrollToRow(int row)
{
    executeDelayedItemsLayout();
    scrollTo(model()->index(row, 0), QAbstractItemView::EnsureVisible);
}

void PaneTableView::mousePressEvent(QMouseEvent *event)
{
    m_pressedRow = -1;
    m_clickOnRelease = false;
    if (event->button() != Qt::LeftButton)
        return;
    const QModelIndex index = indexAt(event->position().toPoint());
    if (!index.isValid())
        return;
    m_pressedRow = index.row();
    m_pressPosition = event->position().toPoint();
    m_pressModifiers = event->modifiers();
    // A plain press on a tagged row may begin a drag of all the tags: the click,
    // which would clear them, waits for a release without a drag.
    const bool plain = !(m_pressModifiers & (Qt::ControlModifier | Qt::ShiftModifier));
    if (plain && index.data(PaneTableModel::taggedRole).toBool()) {
        m_clickOnRelease = true;
        return;
    }
    Q_EMIT rowClicked(index.row(), m_pressModifiers);
}

void PaneTableView::mouseMoveEvent(QMouseEvent *event)
{
    if (m_pressedRow < 0 || !(event->buttons() & Qt::LeftButton))
        return;
    if ((event->position().toPoint() - m_pressPosition).manhattanLength() < QApplication::startDragDistance())
        return;
    const int row = m_pressedRow;
    m_pressedRow = -1;
    m_clickOnRelease = false;
    startDragOfRow(row);
}

void PaneTableView::mouseReleaseEvent(QMouseEvent *)
{
    const int row = std::exchange(m_pressedRow, -1);
    if (std::exchange(m_clickOnRelease, false) && row >= 0 && row < model()->rowCount())
        Q_EMIT rowClicked(row, m_pressModifiers);
}

void PaneTableView::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const QModelIndex index = indexAt(event->position().toPoint());
    if (index.isValid())
        Q_EMIT rowDoubleClicked(index.row());
}

void PaneTableView::contextMenuEvent(QContextMenuEvent *event)
{
    const QModelIndex index = indexAt(event->pos());
    Q_EMIT contextMenuRequested(index.isValid() ? index.row() : -1, event->globalPos());
    event->accept();
}

// A tagged row takes all tagged rows along, in the listing's order; any other
// row goes alone.
std::vector<std::filesystem::path> PaneTableView::draggedItems(int row) const
{
    const auto pathOf = [this](int at) {
        const QByteArray bytes = model()->index(at, 0).data(PaneTableModel::pathRole).toByteArray();
        return std::filesystem::path(std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())));
    };
    std::vector<std::filesystem::path> items;
    if (!model()->index(row, 0).data(PaneTableModel::taggedRole).toBool()) {
        items.push_back(pathOf(row));
    } else {
        for (int at = 0; at < model()->rowCount(); ++at)
            if (model()->index(at, 0).data(PaneTableModel::taggedRole).toBool())
                items.push_back(pathOf(at));
    }
    std::erase_if(items, [](const std::filesystem::path &item) { return item.empty(); });
    return items;
}

void PaneTableView::startDragOfRow(int row)
{
    const std::vector<std::filesystem::path> items = draggedItems(row);
    if (items.empty())
        return;
    auto *drag = new QDrag(this);
    drag->setMimeData(dragData(items).release());
    drag->exec(Qt::CopyAction | Qt::MoveAction | Qt::LinkAction, Qt::CopyAction);
}

} // namespace quillorn::detail
